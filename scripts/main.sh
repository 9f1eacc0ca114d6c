#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds Tezcore and runs the main job:
# slices in, a rendered picture out.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh -DTEZ_BUILD_TESTS=OFF -DTEZ_BUILD_BENCH=OFF
# The built-in CT-like sample, as slices, through the octree and the ray
# caster: writes tez-render.png here and prints its path.
exec "${TEZ_BUILD_DIR:-build}/bin/tez" render
