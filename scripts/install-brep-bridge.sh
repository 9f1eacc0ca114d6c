#!/usr/bin/env bash
# Installs the Rhino bridge's one dependency, the rhino3dm package (opennurbs
# in WebAssembly), into media/brep/node_modules at the version pinned by
# media/brep/package-lock.json. Needs node and npm; idempotent.
set -euo pipefail
cd "$(dirname "$0")/../media/brep"

if ! command -v npm >/dev/null 2>&1; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends npm
fi

installed=node_modules/rhino3dm/package.json
if [ -f "$installed" ] && [ "$installed" -nt package-lock.json ]; then
  exit 0
fi
npm ci --no-audit --no-fund --loglevel=error
touch "$installed"
