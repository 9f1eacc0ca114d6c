#!/usr/bin/env bash
# The render thread under ThreadSanitizer: builds the library and the GL
# suites with clang and -fsanitize=thread in a build folder of its own, then
# runs the test in which the "Render Thread" paints continuously while the
# main thread edits the scene under PauseContinuousRender(true), and the
# other render view tests beside it. Runs headless (llvmpipe without a GPU).
#
#   bash scripts/tsan-render-thread.sh
#   TEZ_RENDER_THREAD_ROUNDS=500 bash scripts/tsan-render-thread.sh   # longer
#   TEZ_TSAN_BUILD_DIR=DIR                                            # default build-tsan
#
# Fails on a failing test or on any ThreadSanitizer report, except those of
# Mesa's own threads (scripts/tsan-suppressions.txt says why).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

build=${TEZ_TSAN_BUILD_DIR:-build-tsan}
case $build in /*) ;; *) build=$root/$build ;; esac
jobs=${TEZ_JOBS:-$(nproc)}

flags="-fsanitize=thread -fno-omit-frame-pointer -g -O1"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  "-DCMAKE_C_FLAGS=$flags" "-DCMAKE_CXX_FLAGS=$flags" \
  "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread" \
  "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread" \
  -DPython_EXECUTABLE=/usr/bin/python3 -DTEZ_WITH_CUDA=OFF \
  -DTEZ_BUILD_TESTS=ON -DTEZ_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$jobs" --target tez_gl_tests

export TEZ_RENDER_THREAD_ROUNDS=${TEZ_RENDER_THREAD_ROUNDS:-200}
export TEZ_LOG_ROOT=$build/test-logs
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$root/scripts/tsan-suppressions.txt ${TSAN_OPTIONS:-}" \
  "$build/tests/render/tez_gl_tests" --gtest_filter='RenderViewTest.*'
echo "tsan-render-thread: no data race in $TEZ_RENDER_THREAD_ROUNDS rounds"
