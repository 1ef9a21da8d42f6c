#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang into build-fuzz/ and runs each for
# FUZZ_SECONDS (default 60) from a seed corpus of rendered scenes made here.
# A crash, hang or sanitizer report fails the script; the input that caused it
# is left in build-fuzz/findings/<harness>/ for a regression test.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
out=build-fuzz
mkdir -p "$out"
CC=clang CXX=clang++ cmake -S . -B "$out" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBOXDIM_FUZZ=ON \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -gline-tables-only -DNDEBUG" -DBOXDIM_BUILD_TESTS=OFF > "$out/configure.log" 2>&1 || { cat "$out/configure.log"; exit 1; }
cmake --build "$out" -j2 --target frame_fuzzer depth_file_fuzzer boxdim-cli

# Seeds: a few rendered boxes, as raw frames and as 16-bit PNG. The fuzzers'
# own corpora start from these and grow in the build folder only.
seeds=$out/seeds
rm -rf "$seeds"
mkdir -p "$seeds/scenes" "$out/corpus/frame_fuzzer" "$out/corpus/depth_file_fuzzer"
cli=$out/bin/boxdim-cli
"$cli" simulate --box 400x300x200 --camera-height 1000 --out "$seeds/scenes/plain.raw" >/dev/null
"$cli" simulate --box 500x250x150 --camera-height 1100 --tilt 5 --yaw 25 --noise 2 \
  --flying 0.3 --dropout 0.01 --seed 3 --out "$seeds/scenes/noisy.raw" >/dev/null
"$cli" simulate --box 300x300x300 --camera-height 900 --roll 4 --yaw 40 --offset 30,-20 \
  --out "$seeds/scenes/turned.raw" >/dev/null
mkdir -p "$seeds/frame_fuzzer" "$seeds/depth_file_fuzzer"
# The same scene at half the resolution measures four times as fast; inputs
# are kept to that size (-max_len) so that the fuzzers run several times as
# many of them.
half() {
  convert -size 640x480 -depth 16 -endian LSB "gray:$1" -sample 320x240 -depth 16 -endian LSB gray:-
}
half_intrinsics() { perl -e 'print pack("f<4", 253.213, 253.3025, 161.509, 115.583)'; }
for scene in "$seeds"/scenes/*.raw; do
  name=$(basename "$scene" .raw)
  # frame_fuzzer, flags 3: size 320 x 240 and intrinsics from the header.
  { printf '\x03\x3f\x01\xef\x00'; half_intrinsics; half "$scene"; } > "$seeds/frame_fuzzer/$name-half"
  # A header of zeros: a 640 x 480 frame with the default intrinsics, its
  # samples the half-size scene repeated.
  { head -c 21 /dev/zero; half "$scene"; } > "$seeds/frame_fuzzer/$name-vga"
  # depth_file_fuzzer, kind 1: the size in the capture file name.
  { printf '\x01\x40\x01\xf0\x00'; half "$scene"; } > "$seeds/depth_file_fuzzer/$name-half-raw"
done
# Flags 7: the same, measured twice on one state.
{ printf '\x07\x3f\x01\xef\x00'; half_intrinsics; half "$seeds/scenes/plain.raw"; } \
  > "$seeds/frame_fuzzer/plain-half-twice"
# Kind 2: a 16-bit PNG.
half "$seeds/scenes/plain.raw" | convert -size 320x240 -depth 16 -endian LSB gray:- \
  -define png:color-type=0 -define png:bit-depth=16 "$seeds/plain.png"
{ printf '\x02\x00\x00\x00\x00'; cat "$seeds/plain.png"; } > "$seeds/depth_file_fuzzer/plain-png"

status=0
for harness in frame_fuzzer depth_file_fuzzer; do
  findings=$out/findings/$harness
  mkdir -p "$findings"
  echo "== $harness for ${seconds}s"
  # -timeout: any input slower than this is a hang worth a regression test.
  if ! "$out/bin/$harness" "$out/corpus/$harness" "$seeds/$harness" \
      -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -max_len=160000 \
      -print_final_stats=1 -artifact_prefix="$findings/" > "$out/$harness.log" 2>&1; then
    status=1
    tail -n 60 "$out/$harness.log"
    echo "$harness failed; reproducer in $findings/" >&2
  fi
  grep -E '^stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb):' \
    "$out/$harness.log" || true
done
exit "$status"
