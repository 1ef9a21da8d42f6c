#!/usr/bin/env bash
# Builds boxdim with AddressSanitizer and UndefinedBehaviorSanitizer into
# build-asan/ and runs the whole test suite there. Any sanitizer report fails
# the test it happens in, and so this script.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
mkdir -p build-asan
# -O1 with line tables only compiles several times faster than -O2 -g, and a
# report still gets a file and line for every frame.
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBOXDIM_SANITIZE=ON \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" \
  > build-asan/configure.log 2>&1 || { cat build-asan/configure.log; exit 1; }
cmake --build build-asan -j2

export ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# Leaks inside the libraries that highgui's windows load (the session bus,
# fontconfig) are theirs to fix; the file names only those libraries.
export LSAN_OPTIONS=suppressions=$root/scripts/lsan-suppressions.txt:print_suppressions=0
# The soak test's length is for finding slow leaks in the normal build; here
# every frame is checked, and a few hundred are enough.
export BOXDIM_SOAK_FRAMES=${BOXDIM_SOAK_FRAMES:-300}
# A measurement several times slower leaves the end-to-end test's key presses
# to the frame handler, which drops them, several times as often.
export BOXDIM_E2E_PRESSES=${BOXDIM_E2E_PRESSES:-25}
# The load test judges the frame rate of the optimised build; under the
# sanitizers it only says how slow they are.
# As in the normal run, a hang fails its test after five minutes; under the
# sanitizers the slowest take well under a minute.
ctest --test-dir build-asan --output-on-failure -j2 -LE load --timeout 300
