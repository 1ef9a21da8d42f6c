#!/usr/bin/env bash
# On a fresh Debian 12 machine: installs what boxdim needs, builds it and runs
# every test; then a bounded run of each fuzzer, and the whole suite again
# under AddressSanitizer and UndefinedBehaviorSanitizer (its summary closes the
# output).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
ctest --test-dir build --output-on-failure -j"$(nproc)"
bash scripts/fuzz.sh
bash scripts/sanitize.sh
