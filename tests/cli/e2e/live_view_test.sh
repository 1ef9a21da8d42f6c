#!/usr/bin/env bash
# Runs boxdim-cli live --view on the virtual camera in a real window under
# Xvfb: a box put down appears in the window with its track id and fused
# dimensions, its events are printed, and Esc in the window ends the run.
# Usage: live_view_test.sh BOXDIM_CLI_BINARY ARTEFACT_DIR
set -uo pipefail
cli=$(realpath "$1")
artefacts=$(realpath -m "$2")
here=$(dirname "$(realpath "$0")")
source "$here/../../app/e2e/xvfb_session.sh"

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
export BOXDIM_CAMERA=sim
export BOXDIM_SCENE="box=400x300x200,camera-height=1100,yaw=25,noise=1,placed=0.5"
"$cli" live --view --events > out.txt 2> err.txt &
program=$!

window="boxdim camera 1"
check "view window" wait_for 20 window_exists "$window"
check "measured event" wait_for 20 grep -q "^camera 1 box 1 measured at " out.txt
# A few frames more, so that the window shows the fused reading.
sleep 1
import -window "$(window_id "$window")" "$artefacts/live_view.png" 2>/dev/null
check "screenshot of the view" test -s "$artefacts/live_view.png"
# The box is outlined in the colour of a box with a fused reading.
green=$(convert "$artefacts/live_view.png" -fill black +opaque "rgb(60,200,60)" \
  -fill white -opaque "rgb(60,200,60)" -format "%[fx:round(mean*w*h)]" info: 2>/dev/null)
echo "pixels in the colour of a fused box: ${green:-none}"
check "a box with a fused reading drawn" test "${green:-0}" -gt 200

check "Esc ends the run" press_until "$window" Escape bash -c "! kill -0 $program 2>/dev/null"
wait "$program"
status=$?
program=""
check "exit status 0" test "$status" -eq 0
check "stopped in the window" grep -q "stopped in the view window" err.txt
cp out.txt "$artefacts/live-view-output.txt" 2>/dev/null

report_checks
