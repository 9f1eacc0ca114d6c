#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds Tezcore and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh -DTEZ_BUILD_TESTS=OFF -DTEZ_BUILD_BENCH=OFF
exec "${TEZ_BUILD_DIR:-build}/bin/tez" info
