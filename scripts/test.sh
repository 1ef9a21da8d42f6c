#!/usr/bin/env bash
# On a fresh Debian 12 machine: installs what boxdim needs, builds it and runs
# every test; then the same suite under AddressSanitizer and
# UndefinedBehaviorSanitizer, and a bounded run of each fuzzer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
ctest --test-dir build --output-on-failure -j"$(nproc)"
bash scripts/sanitize.sh
bash scripts/fuzz.sh
