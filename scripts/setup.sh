#!/usr/bin/env bash
# Installs everything boxdim needs to build, test and run, from Debian packages
# (libxcb lets the station program ask for a display before it opens windows;
# Xvfb, xdotool and ImageMagick drive and photograph the program's windows in
# the end-to-end test and in the demo on machines without a display; clang, its
# sanitizer and libFuzzer runtimes and llvm-symbolizer build and run the fuzzers;
# cpp-httplib and SQLite make the service, and Chromium tests its web page as a
# real browser).
# Safe to run again: apt-get skips what is already there.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libopencv-dev libeigen3-dev libxcb1-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
  xvfb xdotool x11-utils imagemagick
  clang libclang-rt-14-dev llvm
  libcpp-httplib-dev libsqlite3-dev chromium
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
