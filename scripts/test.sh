#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds Tezcore with its tests and
# benchmarks, and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh -DTEZ_BUILD_TESTS=ON -DTEZ_BUILD_BENCH=ON
cd "${TEZ_BUILD_DIR:-build}"
ctest --output-on-failure -j "${TEZ_JOBS:-$(nproc)}" --label-exclude gpu
