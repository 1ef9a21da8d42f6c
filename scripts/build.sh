#!/usr/bin/env bash
# Configures and builds boxdim into build/ (Release unless BUILD_TYPE says
# otherwise). Extra arguments go to `cmake --build`, e.g. --target boxdim-cli.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-Release}" > build.log 2>&1 || {
  cat build.log; exit 1; }
cmake --build build -j"$(nproc)" "$@"
