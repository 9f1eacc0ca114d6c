#!/usr/bin/env bash
# Installs everything Tezcore needs to build, test and run on Debian 12.
# Idempotent: packages already present are left alone.
#   --extras  also the peer libraries of the benchmarks
# clang and its sanitizer and libFuzzer runtimes are for the sanitizer tier
# (scripts/sanitize.sh) and scripts/fuzz.sh; clang-format for the format
# check (scripts/structure.sh).
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config git
  python3 python3-dev pybind11-dev
  libtbb-dev libfreeimage-dev libtinyxml2-dev libgdcm-dev
  libdeflate-dev libisal-dev zlib1g-dev libdw-dev
  libfreetype-dev libfontconfig-dev fonts-dejavu-core libglew-dev libglu1-mesa-dev libegl-dev libgl-dev
  libegl-mesa0 libgl1-mesa-dri libglfw3-dev libx11-dev xvfb xauth
  libcli11-dev python3-numpy python3-pytest xdotool x11-apps
  libgtest-dev libgmock-dev libbenchmark-dev libeigen3-dev
  assimp-testmodels nodejs
  clang libclang-rt-14-dev clang-format
)

if [ "${1:-}" = "--extras" ]; then
  packages+=(libzstd-dev liblz4-dev
             libopenvdb-dev libboost-iostreams-dev libassimp-dev libtinyobjloader-dev
             libcgal-dev libgmp-dev libmpfr-dev libvtk9-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The Rhino 3DM bridge (media/brep): the rhino3dm package from npm.
bash "$(dirname "$0")/install-brep-bridge.sh"
