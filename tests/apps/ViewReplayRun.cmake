# A viewing session replays in a fresh process to the same pictures.
#   cmake -DTEZ=<tez> -DWORK=<folder> -P ViewReplayRun.cmake
# tez view saves the built-in phantom as a document; a script session opens
# it, exports pictures from the start view, two standard views and a moved
# camera, and writes its history; a fresh process runs that history, and
# every picture must come out the same bytes.

function(run_tez)
  execute_process(COMMAND ${TEZ} ${ARGN} WORKING_DIRECTORY ${WORK}
    RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "tez ${ARGN} failed (${code}):\n${out}${err}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
run_tez(view --sample 32 --offscreen --size 320x240 --save-as phantom.mvne)

file(WRITE ${WORK}/session.py
  "import tez\n"
  "tez.start()\n"
  "tez.open('phantom.mvne')\n"
  "tez.export_main_window('start.png')\n"
  "tez.export_standard_view('front.png', 'front')\n"
  "tez.move_focus(-40.0, -12.0, 90.0, 16.0, 16.0, 16.0, 0.16, 0.41, 0.9, 25.0)\n"
  "tez.export_main_window('moved.png')\n"
  "tez.export_standard_view('iso.png', 'isometric')\n"
  "tez.stop()\n")
run_tez(script run session.py --history history.py)
file(READ ${WORK}/history.py history)
foreach(line "tez.open(r'phantom.mvne')" "tez.export_standard_view('front.png', 'front')"
             "tez.move_focus(-40.0, -12.0, 90.0, 16.0, 16.0, 16.0, 0.16, 0.41, 0.9, 25.0)"
             "tez.export_main_window('moved.png')")
  string(FIND "${history}" "${line}" at)
  if(at LESS 0)
    message(FATAL_ERROR "the history lacks ${line}:\n${history}")
  endif()
endforeach()

set(pictures start front moved iso)
foreach(name IN LISTS pictures)
  file(RENAME ${WORK}/${name}.png ${WORK}/${name}-session.png)
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/front-session.png ${WORK}/iso-session.png
  RESULT_VARIABLE differ)
if(NOT differ)
  message(FATAL_ERROR "the front and isometric pictures are the same: nothing was drawn")
endif()

run_tez(script run history.py)
foreach(name IN LISTS pictures)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/${name}.png ${WORK}/${name}-session.png
    RESULT_VARIABLE differ)
  if(differ)
    message(FATAL_ERROR "${name}.png of the replay differs from the session's")
  endif()
endforeach()
message(STATUS "4 pictures replayed to the same bytes")
