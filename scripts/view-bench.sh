#!/usr/bin/env bash
# Times tez view off-screen on the built-in phantom: from an orbit event to
# the repainted frame, the frame rate of a continuous orbit, and the pick
# under the pointer (identity map and read-back).
# usage: scripts/view-bench.sh [SIZE] [WxH] [FRAMES]   (default 512 1024x768 30)
set -euo pipefail
cd "$(dirname "$0")/.."
size=${1:-512}
picture=${2:-1024x768}
frames=${3:-30}
tez=$(realpath build/bin/tez)
mkdir -p build/view-bench
cd build/view-bench
# The phantom's slices are written once and kept here.
"$tez" view --sample "$size" --offscreen --size "$picture" --bench "$frames"
