#!/usr/bin/env bash
# Runs the real boxdim program on the virtual camera in a real window under
# Xvfb and drives it with the keyboard as an operator would.
# Usage: boxdim_end_to_end_test.sh BOXDIM_BINARY ARTEFACT_DIR
set -uo pipefail
boxdim=$(realpath "$1")
artefacts=$(realpath -m "$2")
here=$(dirname "$(realpath "$0")")
source "$here/xvfb_session.sh"

work=$(mktemp -d)
mkdir -p "$artefacts"
cleanup() {
  [ -n "${program:-}" ] && kill "$program" 2>/dev/null
  stop_virtual_display
  rm -rf "$work"
}
trap cleanup EXIT

start_virtual_display || exit 1
cd "$work"
unset BOXDIM_CAMERA
export BOXDIM_SCENE="box=400x300x200,camera-height=1000,yaw=15,noise=1,seed=1"
"$boxdim" > out.txt 2> err.txt &
program=$!

has() { grep -q -- "$1" out.txt; }
check "start-up banner and SDK lines" wait_for 20 has "box_length:"
check "banner" grep -qx "CorvaneSDK Test Demo" out.txt
check "SDK version" grep -q "^SDKVersion:." out.txt
check "serial number" grep -q "^SN0:." out.txt
check "capability lines" grep -q "^FrameType1:2,Resolution1:2$" out.txt

# The measured box: the last complete result lines.
length=$(grep -o "box_length:   [0-9.]*" out.txt | tail -n 1 | awk '{print $2}')
width=$(grep -o "box_width:  [0-9.]*" out.txt | tail -n 1 | awk '{print $2}')
height=$(grep "^box_height: " out.txt | tail -n 1 | awk '{print $2}')
echo "measured: length $length, width $width, height $height"
near() { awk -v v="$1" -v t="$2" 'BEGIN { exit !(v - t < 5 && t - v < 5) }'; }
check "length near 400" near "${length:-0}" 400
check "width near 300" near "${width:-0}" 300
check "height near 200" near "${height:-0}" 200

check "depth window" wait_for 10 window_exists depth_1
sleep 1
import -window "$(window_id depth_1)" "$artefacts/depth_window.png" 2>/dev/null
check "screenshot of the depth window" test -s "$artefacts/depth_window.png"

# v: frames are saved under depth/ with the capture name pattern, which
# numbers the device as its id + 1 (the first device has id 1).
saved() { compgen -G "depth/*.raw" >/dev/null; }
check "depth frames saved after v" press_until depth_1 v saved
# (Their names and sizes are checked once the program has stopped: saving
# stays on, and a file being rewritten would read short.)

# b: the four intrinsics on one line.
check "intrinsics printed" press_until depth_1 b grep -Eq '^[0-9.]+ [0-9.]+ [0-9.]+ [0-9.]+$' out.txt

# s: stream 2 -> 3 replaces the depth window by the colour window.
check "colour window after s" press_until depth_1 s window_exists RGB_1
check "depth window gone after s" wait_for 10 bash -c "! xdotool search --name '^depth_1$' >/dev/null 2>&1"

# Esc stops the streams; the program then waits for a last Esc.
check "stop report" press_until RGB_1 Escape grep -q "^StopStreaming Success$" out.txt
sleep 0.5
press RGB_1 Escape
status=124
for _ in $(seq 1 50); do
  if ! kill -0 "$program" 2>/dev/null; then
    wait "$program"
    status=$?
    break
  fi
  sleep 0.2
done
program=""
check "exit status 0 after the second Esc" test "$status" -eq 0

for f in depth/*.raw; do
  check "file name $f" bash -c "basename '$f' | grep -Eq '^2_640x480-depth_[0-9]+\.raw$'"
  check "file size $f" test "$(stat -c %s "$f")" -eq 614400
done
cp out.txt "$artefacts/boxdim-output.txt" 2>/dev/null

report_checks
