#!/usr/bin/env bash
# Installs the dependencies and builds Tezcore into ./build (or $TEZ_BUILD_DIR).
# Extra arguments go to CMake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

# The device kernels are compiled with nvcc wherever the CUDA toolkit is
# installed; at run time they are used only when a GPU is present.
# TEZ_WITH_CUDA=OFF in the environment builds the host loops alone.
cuda=${TEZ_WITH_CUDA:-}
if [ -z "$cuda" ]; then
  cuda=OFF
  if command -v nvcc >/dev/null 2>&1 || [ -x /usr/local/cuda/bin/nvcc ]; then cuda=ON; fi
fi

build_dir=${TEZ_BUILD_DIR:-build}
jobs=${TEZ_JOBS:-$(nproc)}
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DPython_EXECUTABLE=/usr/bin/python3 -DTEZ_WITH_CUDA="$cuda" "$@"
cmake --build "$build_dir" -j "$jobs"
