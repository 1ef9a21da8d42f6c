#!/usr/bin/env bash
# On a fresh Debian 12 machine: installs what boxdim needs, builds it, renders a
# box scene as a time-of-flight camera would see it, and measures it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh --target boxdim-cli

cli=build/bin/boxdim-cli
out=build/demo
mkdir -p "$out"

echo "== A 400 x 300 x 200 mm box, 1 m below the camera, with sensor noise =="
"$cli" simulate --box 400x300x200 --camera-height 1000 --tilt 5 --yaw 20 \
  --noise 1.5 --flying 0.3 --dropout 0.002 --seed 7 \
  --out "$out/box.raw" --png "$out/box-depth.png"
echo
echo "== Measured by boxdim-cli =="
"$cli" measure --seed 1 --annotate "$out/measured" "$out/box.raw"
echo
echo "Pictures: $out/box-depth.png (depth), $out/measured/box.png (as the station shows it)"
