# Runs the real tez as a user would: a sample stack with a gap, an octree
# built from it, then its description. Fails on any non-zero exit or when
# the description lacks what it must say.
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${TEZ} sample ${WORK}/slices --size 40 RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "tez sample failed: ${rc}")
endif()
file(REMOVE ${WORK}/slices/slice0007.png)
execute_process(COMMAND ${TEZ} octree ${WORK}/slices/slice%04d.png 0 39 --bpp 16 --voxel-size 0.25 -o ${WORK}/sample.tez
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0 OR NOT err MATCHES "1 of 40 slices missing \\(7\\)")
  message(FATAL_ERROR "tez octree failed: ${rc}\n${out}\n${err}")
endif()
execute_process(COMMAND ${TEZ} octree --info ${WORK}/sample.tez RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0 OR NOT out MATCHES "dimensions: 40 x 40 x 40 voxels" OR NOT out MATCHES "bits per voxel: 16"
   OR NOT out MATCHES "voxel size: 0.25" OR NOT out MATCHES "bricks: [1-9]")
  message(FATAL_ERROR "tez octree --info: ${rc}\n${out}")
endif()
execute_process(COMMAND ${TEZ} octree ${WORK}/missing/s%d.png 0 3 -o ${WORK}/x.tez RESULT_VARIABLE rc ERROR_VARIABLE err)
if(NOT rc EQUAL 1 OR NOT err MATCHES "does not exist")
  message(FATAL_ERROR "a missing folder must fail with a message: ${rc} ${err}")
endif()
execute_process(COMMAND ${TEZ} octree --info ${WORK}/slices/slice0001.png RESULT_VARIABLE rc ERROR_VARIABLE err)
if(NOT rc EQUAL 1)
  message(FATAL_ERROR "an image is not an octree: ${rc} ${err}")
endif()
