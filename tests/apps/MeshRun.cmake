# Runs the real tez program on mesh files, as a user does.
#   cmake -DTEZ=<tez> -DDATA=<folder> -DWORK=<folder> -P MeshRun.cmake
# A faulty OBJ is checked (exit 1), cleaned into binary and text STL, and
# the results read back; unreadable files and bad usage give 1 and 2.

include(${CMAKE_CURRENT_LIST_DIR}/TezRun.cmake)

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

run_tez(mesh check ${DATA}/open_box.obj)
expect(1 "degenerate triangles: 1\nduplicate triangles: 1\nnon-manifold edges: 3\nresult: faults found")

run_tez(mesh clean ${DATA}/open_box.obj -o ${WORK}/clean.stl)
expect(0 "degenerate triangles removed: 1\nduplicate triangles removed: 1\ntriangles: 10\n")
run_tez(mesh info ${WORK}/clean.stl)
expect(0 "vertices: 8\ntriangles: 10\nholes: 1\ndegenerate triangles: 0\nduplicate triangles: 0\nnon-manifold edges: 0\nbounds: 0 0 0 .. 1 1 1\narea: 5\n")
run_tez(mesh check ${WORK}/clean.stl -o ${WORK}/clean_text.stl --ascii)
expect(0 "result: ok")
file(READ ${WORK}/clean_text.stl text LIMIT 28)
if(NOT text STREQUAL "solid OstranMetrologiesMesh\n")
  message(FATAL_ERROR "text STL starts with '${text}'")
endif()

run_tez(mesh info ${DATA}/broken.ply)
expect(1 "cannot read '.*broken.ply': not a readable STL, OBJ or PLY mesh")
run_tez(mesh info ${WORK}/missing.stl)
expect(1 "cannot open '.*missing.stl'")
run_tez(mesh info ${DATA}/tetra.stl extra)
expect(2 "unexpected argument 'extra'")
run_tez(mesh frobnicate ${DATA}/tetra.stl)
expect(2 "unknown command 'frobnicate'")
run_tez(mesh info)
expect(2 "missing mesh file")
