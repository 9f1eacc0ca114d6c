#!/usr/bin/env bash
# Installs the dependencies and builds Tezcore into ./build (or $TEZ_BUILD_DIR).
# Extra arguments go to CMake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

build_dir=${TEZ_BUILD_DIR:-build}
jobs=${TEZ_JOBS:-$(nproc)}
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DPython_EXECUTABLE=/usr/bin/python3 "$@"
cmake --build "$build_dir" -j "$jobs"
