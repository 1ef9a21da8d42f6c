#!/usr/bin/env bash
# On a fresh Debian 12 machine: installs what boxdim needs, builds it and runs
# every test; then a bounded run of each fuzzer, and the whole suite again
# under AddressSanitizer and UndefinedBehaviorSanitizer (its summary closes the
# output).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
# A test that hangs fails after five minutes instead of holding up the run
# (the slowest take seconds; those that need longer say so themselves).
ctest --test-dir build --output-on-failure -j"$(nproc)" --timeout 300
bash scripts/fuzz.sh
bash scripts/sanitize.sh
