#!/usr/bin/env bash
# The sanitizer tier of CI. Builds the library and the suites that touch files
# and memory with AddressSanitizer and UndefinedBehaviorSanitizer (clang, a
# build folder of its own, ccache), runs those suites (archive, compression,
# pools, octree, image stacks, mesh files, topology), then runs every fuzz
# target over its saved corpus against the same library.
#
#   bash scripts/sanitize.sh
#   TEZ_FUZZ_SECONDS=600 bash scripts/sanitize.sh     # longer fuzzing
#   TEZ_SANITIZE_BUILD_DIR=DIR                        # default build-sanitize
#
# Fails on the first failing test, sanitizer report or fuzz finding (the
# input lands in <build>/fuzz/crashes-<target>/). Prints how long each step
# took.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

bash scripts/install-deps.sh

build=${TEZ_SANITIZE_BUILD_DIR:-build-sanitize}
case $build in /*) ;; *) build=$root/$build ;; esac
seconds=${TEZ_FUZZ_SECONDS:-60}
jobs=${TEZ_JOBS:-$(nproc)}
started=$SECONDS
step() { echo "sanitize: $1 after $((SECONDS - started)) s"; }

# -fsanitize=fuzzer-no-link gives the library the coverage hooks that the fuzz
# targets need; the sanitizer runtimes answer them in the test programs.
flags="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g -O1"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  "-DCMAKE_C_FLAGS=$flags -fsanitize=fuzzer-no-link" \
  "-DCMAKE_CXX_FLAGS=$flags -fsanitize=fuzzer-no-link" \
  "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=address,undefined" \
  "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=address,undefined" \
  -DPython_EXECUTABLE=/usr/bin/python3 -DTEZ_WITH_CUDA=OFF \
  -DTEZ_BUILD_TESTS=ON -DTEZ_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$jobs" --target Tezcore tez_core_tests tez_volume_tests tez_mesh_tests
step "built"

suites='^(TezArchive|TezCompress|Compression|MemoryPool|VoxelOctreeNode|PackedBlock|AlignedBytes|PackedPool'
suites+='|TezVoxelOctree|OctreeKernel|ImageStackTest|TezMeshFiles|TezMeshPly|TopologyMesh|HoleTriangulation)\.'
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1 \
UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir "$build" -R "$suites" -j "$jobs" --output-on-failure
step "suites passed"

for target in $(bash scripts/fuzz.sh --list); do
  TEZ_FUZZ_LIBRARY_DIR="$build" TEZ_FUZZ_OUT="$build/fuzz" \
    bash scripts/fuzz.sh "$target" "$seconds" -close_fd_mask=1
  step "fuzzed $target"
done
