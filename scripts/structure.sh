#!/usr/bin/env bash
# The structure checks CI runs beside the tests: the sources are formatted
# (clang-format, check only), no header is included against the layer order,
# and the library narrowed to its lowest layers (platform and core) builds,
# links and passes its tests on its own.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z -- '*.h' '*.cpp' '*.cu' '*.cuh' '*.inl' | xargs -0 clang-format --dry-run --Werror
echo "format: ok"
python3 scripts/check_includes.py
build=${TEZ_CORE_BUILD_DIR:-build-core}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTEZ_WITH_CUDA=OFF \
  -DTEZ_BUILD_TESTS=ON -DTEZ_BUILD_BENCH=OFF "-DTEZ_SUBSYSTEMS=platform;core" > /dev/null
cmake --build "$build" -j "${TEZ_JOBS:-$(nproc)}"
ctest --test-dir "$build" --output-on-failure -j "${TEZ_JOBS:-$(nproc)}"
