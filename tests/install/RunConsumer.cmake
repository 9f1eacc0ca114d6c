# cmake -P script: install, then build and run a consumer of the installed tree.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "failed (${code}): ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# What is installed is public: no detail/ folder, no internal launch header.
file(GLOB_RECURSE private_headers ${prefix}/include/*)
list(FILTER private_headers INCLUDE REGEX "/detail/|/OctreeLaunch\\.h$")
if(private_headers)
  message(FATAL_ERROR "internal headers were installed: ${private_headers}")
endif()

# The installed program starts from the installed tree alone: it finds its
# library through its RPATH, not through the build's.
if(EXISTS ${prefix}/bin/tez)
  run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${prefix}/bin/tez --version)
  if(NOT last_output MATCHES "^tez \\(Tezcore\\) ")
    message(FATAL_ERROR "installed tez printed: ${last_output}")
  endif()
  run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${prefix}/bin/tez sample ${WORK_DIR}/sample --size 8)
  file(GLOB_RECURSE completion ${prefix}/share/bash-completion/completions/tez)
  if(NOT completion)
    message(FATAL_ERROR "the bash completion was not installed")
  endif()
endif()

# find_package(Tezcore) and Tezcore::Tezcore
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer)
if(NOT last_output MATCHES "consumer ok")
  message(FATAL_ERROR "consumer printed: ${last_output}")
endif()

# pkg-config
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  file(GLOB_RECURSE pc_files ${prefix}/tezcore.pc)
  list(GET pc_files 0 pc_file)
  get_filename_component(pc_dir ${pc_file} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_dir})
  run(${PKG_CONFIG} --cflags --libs tezcore)
  string(STRIP "${last_output}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  get_filename_component(libdir ${pc_dir} DIRECTORY)
  run(${CXX} ${CONSUMER_DIR}/main.cpp ${flags} -Wl,-rpath,${libdir} -o ${WORK_DIR}/consumer_pc)
  run(${WORK_DIR}/consumer_pc)
endif()
# The Python module: found below the prefix, loading the installed library
# (not the build tree's) and no libpython.
if(PYTHON)
  file(GLOB_RECURSE modules ${prefix}/tezcore*.so)
  list(LENGTH modules count)
  if(NOT count EQUAL 1)
    message(FATAL_ERROR "expected one installed tezcore module, found: ${modules}")
  endif()
  get_filename_component(site ${modules} DIRECTORY)
  find_program(READELF readelf)
  if(READELF)
    run(${READELF} -d ${modules})
    if(last_output MATCHES "libpython")
      message(FATAL_ERROR "the tezcore module links libpython:\n${last_output}")
    endif()
  endif()
  set(ENV{PYTHONPATH} ${site})
  run(${PYTHON} -c "import tezcore, tez
maps = open('/proc/self/maps').read()
assert tezcore.__file__.startswith('${prefix}/'), tezcore.__file__
assert '${prefix}/' in ''.join(l for l in maps.splitlines() if 'libTezcore' in l), 'the library of the build tree was loaded'
v = tezcore.volume_from_numpy(__import__('numpy').full((16, 32, 32), 200, 'uint8'))
print('python ok', tezcore.__version__, tez.render(tez.build_octree(v), width=8, height=6).shape)")
  if(NOT last_output MATCHES "python ok")
    message(FATAL_ERROR "python printed: ${last_output}")
  endif()
endif()
message(STATUS "install consumer ok")
