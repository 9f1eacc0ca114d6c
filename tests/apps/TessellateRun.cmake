# Runs the real tez program on image stacks, as a user does.
#   cmake -DTEZ=<tez> -DWORK=<folder> -P TessellateRun.cmake
# Writes small grey stacks (text PGM) and checks what tez makes of them: a
# bright block gives a closed box of its size; a checkerboard, all ambiguous
# faces, gives a surface that tez mesh check passes; a 16-bit ball is found
# at a 16-bit threshold.

include(${CMAKE_CURRENT_LIST_DIR}/TezRun.cmake)

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
foreach(z RANGE 1 5)
  set(pgm "P2\n8 8\n255\n")
  set(board "P2\n8 8\n255\n")
  foreach(y RANGE 0 7)
    foreach(x RANGE 0 7)
      if(z GREATER 1 AND z LESS 5 AND x GREATER 1 AND x LESS 6 AND y GREATER 1 AND y LESS 6)
        string(APPEND pgm "255 ")
      else()
        string(APPEND pgm "0 ")
      endif()
      math(EXPR odd "(${x} + ${y} + ${z}) % 2")
      if(NOT (z GREATER 1 AND z LESS 5 AND x GREATER 0 AND x LESS 7 AND y GREATER 0 AND y LESS 7))
        string(APPEND board "0 ")
      elseif(odd)
        string(APPEND board "255 ")
      else()
        string(APPEND board "100 ")
      endif()
    endforeach()
    string(APPEND pgm "\n")
    string(APPEND board "\n")
  endforeach()
  file(WRITE ${WORK}/slice${z}.pgm "${pgm}")
  file(WRITE ${WORK}/board${z}.pgm "${board}")
endforeach()

run_tez(tessellate ${WORK}/slice%d.pgm 1 5 --iso 128 -o ${WORK}/block.stl)
expect(0 "volume: 8 x 8 x 5\nbits per voxel: 8\niso value: 128\n")
run_tez(mesh check ${WORK}/block.stl)
expect(0 "result: ok")
run_tez(mesh info ${WORK}/block.stl)
expect(0 "holes: 0\n.*bounds: 2.00196 2.00196 1.00196 .. 5.99804 5.99804 3.99804\n")

# A checkerboard of 255 and 100 in a frame of 0: every face between them is
# ambiguous. At 128 the bright voxels join across the faces, at 200 they
# stay apart, at 255 the threshold equals them. Written as text, which
# rounds the coordinates.
foreach(iso 128 200 255)
  run_tez(tessellate ${WORK}/board%d.pgm 1 5 --iso ${iso} -o ${WORK}/board.stl --ascii)
  expect(0 "triangles: [1-9][0-9]+\n")
  run_tez(mesh check ${WORK}/board.stl)
  expect(0 "degenerate triangles: 0\nduplicate triangles: 0\nnon-manifold edges: 0\nnon-finite vertices: 0\nresult: ok")
  run_tez(mesh info ${WORK}/board.stl)
  expect(0 "holes: 0\n")
endforeach()

# A 16-bit ball: 3000 at the centre, falling by 30 a squared voxel, radius
# 8.16 at 1000; none of it survives a cut to 8 bits.
foreach(z RANGE 0 17)
  set(pgm "P2\n18 18\n65535\n")
  foreach(y RANGE 0 17)
    foreach(x RANGE 0 17)
      math(EXPR v "3000 - 30 * ((2 * ${x} - 17) * (2 * ${x} - 17) + (2 * ${y} - 17) * (2 * ${y} - 17) + (2 * ${z} - 17) * (2 * ${z} - 17)) / 4")
      if(v LESS 0)
        set(v 0)
      endif()
      string(APPEND pgm "${v} ")
    endforeach()
    string(APPEND pgm "\n")
  endforeach()
  file(WRITE ${WORK}/deep${z}.pgm "${pgm}")
endforeach()
run_tez(tessellate ${WORK}/deep%d.pgm 0 17 --iso 1000 -o ${WORK}/ball.stl)
expect(0 "bits per voxel: 16\niso value: 1000\n")
run_tez(mesh info ${WORK}/ball.stl)
expect(0 "holes: 0\ndegenerate triangles: 0\nduplicate triangles: 0\nnon-manifold edges: 0\n.*volume: 2(2[5-9]|30)[0-9]")
run_tez(tessellate ${WORK}/deep%d.pgm 0 17 --iso 128 --bpp 8 -o ${WORK}/none.stl)
expect(0 "triangles: 0\n.*warning: the surface is empty; the voxels run from 0 to 11\n")

run_tez(tessellate ${WORK}/none%d.pgm 1 5 -o ${WORK}/none.stl)
expect(1 "no file matches")
run_tez(tessellate ${WORK}/slice%d.pgm 1 5 --iso 300 -o ${WORK}/x.stl)
expect(2 "--iso 300 is above 255, the largest 8-bit value \\(--bpp 16 reads 16 bits\\)")
run_tez(tessellate ${WORK}/slice%d.pgm 1 5 --iso 70000 -o ${WORK}/x.stl)
expect(2 "--iso: Value 70000 not in range 0 to 65535")
run_tez(tessellate ${WORK}/slice%d.pgm 1 5 --bpp 12 -o ${WORK}/x.stl)
expect(2 "--bpp: 12 not in {8,16}")
run_tez(tessellate ${WORK}/slice%d.pgm 5 1 -o ${WORK}/x.stl)
expect(2 "FIRST must be at least 0 and LAST at least FIRST")
run_tez(tessellate ${WORK}/slice%d.pgm 1 5)
expect(2 "--output is required")
