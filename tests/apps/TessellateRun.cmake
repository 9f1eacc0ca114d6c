# Runs the real tez program on an image stack, as a user does.
#   cmake -DTEZ=<tez> -DWORK=<folder> -P TessellateRun.cmake
# Writes five 8x8 grey slices (text PGM) with a bright 4x4x3 block inside,
# tessellates them and checks the STL: a closed box of the block's size.

include(${CMAKE_CURRENT_LIST_DIR}/TezRun.cmake)

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
foreach(z RANGE 1 5)
  set(pgm "P2\n8 8\n255\n")
  foreach(y RANGE 0 7)
    foreach(x RANGE 0 7)
      if(z GREATER 1 AND z LESS 5 AND x GREATER 1 AND x LESS 6 AND y GREATER 1 AND y LESS 6)
        string(APPEND pgm "255 ")
      else()
        string(APPEND pgm "0 ")
      endif()
    endforeach()
    string(APPEND pgm "\n")
  endforeach()
  file(WRITE ${WORK}/slice${z}.pgm "${pgm}")
endforeach()

run_tez(tessellate ${WORK}/slice%d.pgm 1 5 --iso 128 -o ${WORK}/block.stl)
expect(0 "volume: 8 x 8 x 5\niso value: 128\n")
run_tez(mesh check ${WORK}/block.stl)
expect(0 "result: ok")
run_tez(mesh info ${WORK}/block.stl)
expect(0 "holes: 0\n.*bounds: 2.00196 2.00196 1.00196 .. 5.99804 5.99804 3.99804\n")

run_tez(tessellate ${WORK}/none%d.pgm 1 5 -o ${WORK}/none.stl)
expect(1 "no readable images")
run_tez(tessellate ${WORK}/slice%d.pgm 1 5 --iso 300 -o ${WORK}/x.stl)
expect(2 "--iso needs a value from 0 to 255")
run_tez(tessellate ${WORK}/slice%d.pgm 5 1 -o ${WORK}/x.stl)
expect(2 "FIRST and LAST")
run_tez(tessellate ${WORK}/slice%d.pgm 1 5)
expect(2 "missing -o OUT.stl")
