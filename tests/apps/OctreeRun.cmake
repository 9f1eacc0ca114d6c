# Runs the real tez as a user would: a sample stack with a gap, an octree
# built from it, then its description; a missing folder and a file that is
# no octree fail with a message.
include(${CMAKE_CURRENT_LIST_DIR}/TezRun.cmake)

file(REMOVE_RECURSE ${WORK})
run_tez(sample ${WORK}/slices --size 40)
expect(0 "slice%04d.png 0 39")
file(REMOVE ${WORK}/slices/slice0007.png)

run_tez(octree ${WORK}/slices/slice%04d.png 0 39 --bpp 16 --voxel-size 0.25 -o ${WORK}/sample.tez)
expect(0 "1 of 40 slices missing \\(7\\)")

run_tez(octree --info ${WORK}/sample.tez)
expect(0 "bits per voxel: 16\ndimensions: 40 x 40 x 40 voxels\nvoxel size: 0.25\n.*bricks: [1-9]")

run_tez(octree ${WORK}/missing/s%d.png 0 3 -o ${WORK}/x.tez)
expect(1 "does not exist")

run_tez(octree --info ${WORK}/slices/slice0001.png)
expect(1 "not a readable octree")
