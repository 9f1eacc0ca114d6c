# Links the compression benchmark: zlib is its baseline; zstd, LZ4,
# libdeflate and ISA-L only join with TEZ_BUILD_PEER_BENCH.
find_package(ZLIB REQUIRED)
target_link_libraries(tez_bench PRIVATE ZLIB::ZLIB)
if(TEZ_BUILD_PEER_BENCH)
  find_path(TEZ_ZSTD_INCLUDE_DIR zstd.h REQUIRED)
  find_library(TEZ_ZSTD_LIBRARY zstd REQUIRED)
  find_path(TEZ_LZ4_INCLUDE_DIR lz4.h REQUIRED)
  find_library(TEZ_LZ4_LIBRARY lz4 REQUIRED)
  find_path(TEZ_ISAL_INCLUDE_DIR isa-l/igzip_lib.h REQUIRED)
  find_library(TEZ_ISAL_LIBRARY isal REQUIRED)
  find_path(TEZ_LIBDEFLATE_INCLUDE_DIR libdeflate.h REQUIRED)
  find_library(TEZ_LIBDEFLATE_LIBRARY deflate REQUIRED)
  target_include_directories(tez_bench PRIVATE
    ${TEZ_ZSTD_INCLUDE_DIR} ${TEZ_LZ4_INCLUDE_DIR} ${TEZ_ISAL_INCLUDE_DIR} ${TEZ_LIBDEFLATE_INCLUDE_DIR})
  target_link_libraries(tez_bench PRIVATE ${TEZ_ZSTD_LIBRARY} ${TEZ_LZ4_LIBRARY} ${TEZ_ISAL_LIBRARY} ${TEZ_LIBDEFLATE_LIBRARY})
endif()
