# Runs tez mesh fill-holes and tez mesh curvature as a user does.
#   cmake -DTEZ=<tez> -DDATA=<folder> -DWORK=<folder> -P MeshRepairRun.cmake
# The open box (with its faults) is closed and read back without holes; the
# sphere of radius 2 has mean curvature near -1/2 and Gaussian near 1/4.

include(${CMAKE_CURRENT_LIST_DIR}/TezRun.cmake)

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

run_tez(mesh fill-holes ${DATA}/open_box.obj -o ${WORK}/closed.stl)
expect(0 "faulty triangles removed: 2\nholes: 1\nfilled: 1\nskipped: 0\nvertices added: 0\ntriangles added: 2\nwritten: .*closed.stl\nholes left: 0\n$")
run_tez(mesh info ${WORK}/closed.stl)
expect(0 "triangles: 12\nholes: 0\ndegenerate triangles: 0\nduplicate triangles: 0\nnon-manifold edges: 0\nnon-finite vertices: 0\n.*area: 6\nvolume: 1\n")

# A hole too long for --max-edges is left open.
run_tez(mesh fill-holes ${DATA}/open_box.obj --max-edges 3)
expect(0 "holes: 1\nfilled: 0\nskipped: 1\n.*holes left: 1\n")
run_tez(mesh fill-holes ${DATA}/open_box.obj --max-edges many)
expect(2 "--max-edges: ")

run_tez(mesh curvature ${DATA}/sphere_r2.stl --per-vertex ${WORK}/sphere.csv)
expect(0 "vertices: 266\nmean curvature: min -0\\.5[0-9]* mean -0\\.(49|50)[0-9]* max -0\\.(4[5-9]|5)[0-9]*\ngaussian curvature: min 0\\.[12][0-9]* mean 0\\.2[0-9]* max 0\\.2[0-9]*\n")
file(STRINGS ${WORK}/sphere.csv rows)
list(LENGTH rows count)
if(NOT count EQUAL 267)
  message(FATAL_ERROR "per-vertex file has ${count} rows, wanted a header and 266")
endif()
run_tez(mesh curvature ${DATA}/sphere_r2.stl --per-vertex)
expect(2 "--per-vertex: 1 required OUT.csv missing")
