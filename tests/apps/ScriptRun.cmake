# Runs the real tez program on scripts, as a user does.
#   cmake -DTEZ=<tez> -DWORK=<folder> -DMODE=roundtrip|error [-DSCRIPT=<file>] -P ScriptRun.cmake
# roundtrip: a session saves A and exports its history; a fresh process
#            replays the history after A is moved aside; both files and both
#            histories must be the same bytes.
# volume:    tez render saves a volume document V; a session opens it and
#            saves it as B, which must be V's bytes; the history replayed in
#            a fresh process saves B again, the same bytes (skipped, saying
#            so, where tez render has no GL context to draw with).
# error:     SCRIPT fails on its line 3; the exit code is not 0 and stderr
#            names that line with the kernel's message.

function(run_tez)
  execute_process(COMMAND ${TEZ} ${ARGN}
    RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
  set(code "${code}" PARENT_SCOPE)
  set(err "${err}" PARENT_SCOPE)
  set(out "${out}" PARENT_SCOPE)
endfunction()

function(same_bytes a b)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${a} ${b} RESULT_VARIABLE differ)
  if(differ)
    message(FATAL_ERROR "${a} and ${b} differ")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

if(MODE STREQUAL "roundtrip")
  file(WRITE ${WORK}/session.py
    "import tez\n"
    "tez.start()\n"
    "tez.new()\n"
    "tez.save_as('${WORK}/A.mvne')\n"
    "tez.save()\n"
    "tez.stop()\n")
  run_tez(script run ${WORK}/session.py --history ${WORK}/history.py)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "session failed (${code}): ${err}")
  endif()
  file(READ ${WORK}/history.py history)
  set(expected "import tez\n\ntez.start()\ntez.new()\ntez.save_as(r'${WORK}/A.mvne')\ntez.save()\ntez.stop()\n")
  if(NOT history STREQUAL expected)
    message(FATAL_ERROR "unexpected history:\n${history}")
  endif()

  file(RENAME ${WORK}/A.mvne ${WORK}/A-first.mvne)
  run_tez(script run ${WORK}/history.py --history ${WORK}/history-replayed.py)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "replay failed (${code}): ${err}")
  endif()
  if(NOT EXISTS ${WORK}/A.mvne)
    message(FATAL_ERROR "the replay saved no document")
  endif()
  same_bytes(${WORK}/A.mvne ${WORK}/A-first.mvne)
  same_bytes(${WORK}/history.py ${WORK}/history-replayed.py)

  # The saved document opens again, and its history starts with the open.
  file(WRITE ${WORK}/reopen.py "import tez\ntez.open('${WORK}/A.mvne')\n")
  run_tez(script run ${WORK}/reopen.py --history ${WORK}/history-reopened.py)
  file(READ ${WORK}/history-reopened.py reopened)
  if(NOT code EQUAL 0 OR NOT reopened MATCHES "\ntez.open\\(r'${WORK}/A.mvne'\\)\n")
    message(FATAL_ERROR "reopening failed (${code}): ${err}\n${reopened}")
  endif()
elseif(MODE STREQUAL "volume")
  run_tez(render --size 64x48 --color 0.3,0.6,0.9 --save ${WORK}/V.mvne -o ${WORK}/V.png)
  if(NOT code EQUAL 0 AND err MATCHES "need GL")
    message("SKIPPED: ${err}")
    return()
  endif()
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "tez render failed (${code}): ${err}")
  endif()
  file(WRITE ${WORK}/session.py
    "import tez\n"
    "tez.start()\n"
    "tez.open('${WORK}/V.mvne')\n"
    "tez.save_as('${WORK}/B.mvne')\n"
    "tez.stop()\n")
  run_tez(script run ${WORK}/session.py --history ${WORK}/history.py)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "session failed (${code}): ${err}")
  endif()
  same_bytes(${WORK}/B.mvne ${WORK}/V.mvne)
  file(RENAME ${WORK}/B.mvne ${WORK}/B-first.mvne)
  run_tez(script run ${WORK}/history.py)
  if(NOT code EQUAL 0 OR NOT EXISTS ${WORK}/B.mvne)
    message(FATAL_ERROR "replay failed (${code}): ${err}")
  endif()
  same_bytes(${WORK}/B.mvne ${WORK}/B-first.mvne)
elseif(MODE STREQUAL "error")
  get_filename_component(name ${SCRIPT} NAME)
  configure_file(${SCRIPT} ${WORK}/${name} COPYONLY)
  run_tez(script run ${WORK}/${name})
  if(code EQUAL 0)
    message(FATAL_ERROR "a failing script exited with 0")
  endif()
  if(NOT err MATCHES "^tez: [^\n]*${name}:3: The active document has never been saved. Try save_as.\n$")
    message(FATAL_ERROR "unexpected message: ${err}")
  endif()
else()
  message(FATAL_ERROR "MODE must be roundtrip, volume or error")
endif()
