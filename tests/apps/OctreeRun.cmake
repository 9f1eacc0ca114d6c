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

# FIRST and LAST must be numbers of files that exist: a huge LAST is refused
# at once, not walked.
run_tez(octree ${WORK}/slices/slice%04d.png 0 2000000000 -o ${WORK}/x.tez)
expect(1 "files of .*slice%04d.png run from 0 to 39; FIRST and LAST \\(0..2000000000\\) must be within them")

# A directory in the place of a slice is named and refused.
file(MAKE_DIRECTORY ${WORK}/slices/slice0040.png)
run_tez(octree ${WORK}/slices/slice%04d.png 0 40 -o ${WORK}/x.tez)
expect(1 "slice0040.png is a directory, not an image file")

# One corrupt slice of 40 is named and interpolated; five are refused unless
# allowed.
file(WRITE ${WORK}/slices/slice0012.png "not a picture")
run_tez(octree ${WORK}/slices/slice%04d.png 0 39 -o ${WORK}/one-bad.tez)
expect(0 "skipping slice file '[^']*slice0012.png': not a readable image.*1 of 39 slice files cannot be read")
foreach(n 0013 0014 0015 0016)
  file(WRITE ${WORK}/slices/slice${n}.png "not a picture either")
endforeach()
run_tez(octree ${WORK}/slices/slice%04d.png 0 39 -o ${WORK}/bad.tez)
expect(1 "5 of 39 slice files cannot be read as images \\(named above\\): more than 10% is refused \\(--allow-bad-slices uses the rest\\)")
if(EXISTS ${WORK}/bad.tez)
  message(FATAL_ERROR "a refused build wrote its archive")
endif()
run_tez(octree ${WORK}/slices/slice%04d.png 0 39 --allow-bad-slices -o ${WORK}/bad.tez)
expect(0 "5 of 39 slice files cannot be read")

# A memory limit below one slab is refused with the smallest that holds; that
# limit builds the same archive as the default.
run_tez(sample ${WORK}/wide --size 72)
expect(0 "slice%04d.png 0 71")
run_tez(octree ${WORK}/wide/slice%04d.png 0 71 --memory-limit 1 -o ${WORK}/x.tez)
expect(2 "--memory-limit 1 MiB is too small for this 72 x 72 x 72 stack at 8 bits: .* use --memory-limit 3 or more")
run_tez(octree ${WORK}/wide/slice%04d.png 0 71 --memory-limit 3 -o ${WORK}/wide-3.tez)
expect(0 "tree 128")
run_tez(octree ${WORK}/wide/slice%04d.png 0 71 -o ${WORK}/wide-default.tez)
expect(0 "tree 128")
file(SHA256 ${WORK}/wide-3.tez limited)
file(SHA256 ${WORK}/wide-default.tez unlimited)
if(NOT limited STREQUAL unlimited)
  message(FATAL_ERROR "the memory limit changed the archive")
endif()
