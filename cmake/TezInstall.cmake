# Installs the library, its public headers, the CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS Tezcore EXPORT TezcoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Tezcore)

# Public headers only: detail/ folders and the kernels' internal launch
# header stay in the source tree.
foreach(dir IN LISTS TEZ_LIBRARY_FOLDERS)
  install(DIRECTORY ${dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Tezcore/${dir}
    FILES_MATCHING PATTERN "*.h"
    PATTERN "detail" EXCLUDE
    PATTERN "OctreeLaunch.h" EXCLUDE)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/generated/TezcoreVersion.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Tezcore)

install(EXPORT TezcoreTargets NAMESPACE Tezcore::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Tezcore)
configure_package_config_file(cmake/TezcoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TezcoreConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Tezcore)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TezcoreConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TezcoreConfig.cmake ${PROJECT_BINARY_DIR}/TezcoreConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Tezcore)

# Relocatable: the prefix is found from where the .pc file lies.
file(RELATIVE_PATH TEZ_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/tezcore.pc.in ${PROJECT_BINARY_DIR}/tezcore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tezcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET tez)
  # The installed program finds libTezcore beside it, wherever the tree is
  # moved: $ORIGIN/../lib (or the platform's lib folder).
  file(RELATIVE_PATH TEZ_BIN_TO_LIB /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(tez PROPERTIES INSTALL_RPATH "$ORIGIN/${TEZ_BIN_TO_LIB}")
  install(TARGETS tez RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES scripts/tez-completion.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME tez)
endif()
install(DIRECTORY media/ DESTINATION ${CMAKE_INSTALL_BINDIR}/media OPTIONAL)
