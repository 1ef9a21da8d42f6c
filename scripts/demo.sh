#!/usr/bin/env bash
# On a fresh Debian 12 machine: installs what boxdim needs, builds it, and runs
# the station program on a simulated camera. With a display it opens the
# program's windows (Esc twice to quit). Without one it runs the program for a
# few seconds in a virtual display, then prints the measured dimensions and
# keeps a screenshot; it also measures a rendered frame with boxdim-cli.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh --target boxdim boxdim-cli

out=build/demo
mkdir -p "$out"
export BOXDIM_SCENE="${BOXDIM_SCENE:-box=400x300x200,camera-height=1000,tilt=5,yaw=20,noise=1.5,seed=7}"

if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
  echo "Starting boxdim on a simulated camera ($BOXDIM_SCENE)."
  echo "Keys in its windows: v save frames, b load intrinsics, s next stream, Esc stop, Esc again quit."
  exec build/bin/boxdim
fi

echo "No display here: running boxdim for 8 seconds in a virtual display."
source tests/app/e2e/xvfb_session.sh
start_virtual_display
trap stop_virtual_display EXIT
(cd "$out" && exec ../bin/boxdim > boxdim-output.txt 2>&1) &
program=$!
wait_for 20 grep -q "box_height" "$out/boxdim-output.txt" || true
sleep 6
id=$(window_id depth_1)
[ -n "$id" ] && import -window "$id" "$out/boxdim-window.png" 2>/dev/null || true
# Esc stops the streams, a second Esc ends the program.
press_until depth_1 Escape grep -q "StopStreaming" "$out/boxdim-output.txt" || true
for _ in 1 2 3; do
  kill -0 "$program" 2>/dev/null || break
  press depth_1 Escape || true
  sleep 0.5
done
kill "$program" 2>/dev/null || true
wait "$program" 2>/dev/null || true

echo
echo "== boxdim on the simulated camera: the last measurement =="
grep -E "^box_length:|^box_height: " "$out/boxdim-output.txt" | tail -n 2
echo "Frames measured: $(grep -c '^box_height: ' "$out/boxdim-output.txt" || true)"
echo "Its depth window: $out/boxdim-window.png; its whole output: $out/boxdim-output.txt"

echo
echo "== The same kind of scene rendered to a file and measured by boxdim-cli =="
cli=build/bin/boxdim-cli
"$cli" simulate --box 400x300x200 --camera-height 1000 --tilt 5 --yaw 20 \
  --noise 1.5 --flying 0.3 --dropout 0.002 --seed 7 \
  --out "$out/box.raw" --png "$out/box-depth.png" > "$out/box-truth.json"
"$cli" measure --json --seed 1 --annotate "$out/measured" "$out/box.raw" 2>/dev/null
echo "Ground truth: $out/box-truth.json; picture: $out/measured/box.png"
