# A crash of the real tez program: a script reads address 0 through ctypes.
#   cmake -DTEZ=<tez> -DWORK=<folder> -DLINES=ON|OFF -P CrashRun.cmake
# The process dies of SIGSEGV after printing the reason, the registers and a
# stack that leads back to tez's main; the log holds the report and the log
# folder a dump with the loaded modules.
include(${CMAKE_CURRENT_LIST_DIR}/TezRun.cmake)

# With line tables built in, tez's own frames name their files and lines.
set(MAIN_LINE "")
if(LINES)
  set(MAIN_LINE " [^\n]*/apps/tez/main\\.cpp, line [0-9]+")
endif()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(ENV{TEZ_LOG_ROOT} ${WORK}/root)
file(WRITE ${WORK}/crash.py "import ctypes\nctypes.string_at(0)\n")

# No core file from the deliberate crash.
execute_process(COMMAND sh -c "ulimit -c 0; exec \"$0\" script run \"$1\"" ${TEZ} ${WORK}/crash.py
  RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT code MATCHES "Segmentation fault")
  message(FATAL_ERROR "tez ended with '${code}', wanted a segmentation fault\nstderr: ${err}")
endif()
set(hex "[0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F]")
foreach(pattern
    "^tez caused an Access Violation reading address 0x0000000000000000 in module [^\n]+ at 0x${hex}"
    "\nRAX=${hex}  RBX=${hex}  RCX=${hex}  RDX=${hex}  RSI=${hex}\nRDI=${hex}  RBP=${hex}  RSP=${hex}  RIP=${hex}  FLG=${hex}\n"
    "\n_ctypes[^\n]* at 0x${hex}"
    "\ntez at 0x${hex} main\\(\\)\\+[0-9]+ byte\\(s\\)${MAIN_LINE}"
    "\ntez: crash dump written to ${WORK}/root/Logs/tez-crash-[0-9-]+-[0-9]+\\.txt\n$")
  if(NOT err MATCHES "${pattern}")
    message(FATAL_ERROR "stderr does not match '${pattern}':\n${err}")
  endif()
endforeach()

file(GLOB dumps ${WORK}/root/Logs/tez-crash-*.txt)
list(LENGTH dumps count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "wanted one dump file, found: ${dumps}")
endif()
file(READ ${dumps} dump)
if(NOT dump MATCHES "\nsignal: 11 \\(Segmentation fault\\), code 1," OR NOT dump MATCHES "\nmodules:\n0x${hex}-0x${hex} " OR
   NOT dump MATCHES "\n0x${hex}-0x${hex} [^\n]*/libTezcore\\.so" OR
   NOT dump MATCHES "caused an Access Violation")
  message(FATAL_ERROR "unexpected dump:\n${dump}")
endif()
file(READ ${WORK}/root/Logs/MVLogFile1.log log)
if(NOT log MATCHES "ERROR: \\[Crash\\] tez caused an Access Violation reading address 0x0000000000000000")
  message(FATAL_ERROR "the log lacks the report:\n${log}")
endif()
