# Runs the real tez program on mesh files, as a user does.
#   cmake -DTEZ=<tez> -DDATA=<folder> -DWORK=<folder> -P MeshRun.cmake
# A faulty OBJ is checked (exit 1), cleaned into binary and text STL, and
# the results read back; unreadable files and bad usage give 1 and 2.

include(${CMAKE_CURRENT_LIST_DIR}/TezRun.cmake)

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

run_tez(mesh check ${DATA}/open_box.obj)
expect(1 "degenerate triangles: 1\nduplicate triangles: 1\nnon-manifold edges: 3\nnon-finite vertices: 0\nresult: faults found")

run_tez(mesh clean ${DATA}/open_box.obj -o ${WORK}/clean.stl)
expect(0 "degenerate triangles removed: 1\nduplicate triangles removed: 1\ntriangles: 10\n")
run_tez(mesh info ${WORK}/clean.stl)
expect(0 "vertices: 8\ntriangles: 10\nholes: 1\ndegenerate triangles: 0\nduplicate triangles: 0\nnon-manifold edges: 0\nnon-finite vertices: 0\nbounds: 0 0 0 .. 1 1 1\narea: 5\n")
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
expect(2 "tez mesh info: The following argument was not expected: extra")
run_tez(mesh frobnicate ${DATA}/tetra.stl)
expect(2 "tez mesh: unknown command 'frobnicate' \\(known: info, check, clean, fill-holes, curvature\\)")
run_tez(mesh info)
expect(2 "tez mesh info: file is required")

# Files as users have them: a folder where a mesh file belongs, a facet with
# a coordinate that is not a number, faces listed as scanners list them, and
# a file with no faces at all.
file(MAKE_DIRECTORY ${WORK}/folder.stl)
foreach(sub info check clean fill-holes curvature)
  run_tez(mesh ${sub} ${WORK}/folder.stl)
  expect(1 "tez mesh ${sub}: cannot read '.*folder.stl': it is a directory, not a mesh file")
endforeach()
file(WRITE ${WORK}/nan.stl "solid n\n facet normal 0 0 1\n  outer loop\n   vertex 0 0 0\n   vertex 1 0 0\n"
                           "   vertex nan 1 0\n  endloop\n endfacet\nendsolid n\n")
run_tez(mesh check ${WORK}/nan.stl)
expect(1 "non-manifold edges: 0\nnon-finite vertices: 1\nresult: faults found")
set(ply_head "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n")
file(WRITE ${WORK}/scan.ply "${ply_head}element face 2\nproperty list uint8 uint32 vertex_indices\nend_header\n"
                            "0 0 0\n1 0 0\n0 1 0\n0 0 1\n3 0 2 1\n3 0 1 3\n")
run_tez(mesh info ${WORK}/scan.ply)
expect(0 "^vertices: 4\ntriangles: 2\nholes: 1\n")
file(WRITE ${WORK}/points.ply "${ply_head}end_header\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n")
run_tez(mesh info ${WORK}/points.ply)
expect(0 "triangles: 0\n.*tez mesh info: warning: '.*points.ply' gives 0 faces")
