#!/usr/bin/env bash
# The service's web page in headless Chromium, a real browser: it loads, shows
# a row of the measurement history and, in large type, the dimensions of the
# box the virtual camera sees (within 5 mm of 400 x 300 x 200). A screenshot
# is kept in the artifacts folder.
# Usage: web_page_test.sh <boxdim-cli> <artifacts dir>
set -uo pipefail
cli=$1
artifacts=$2
mkdir -p "$artifacts"
work=$(mktemp -d)
server_pid=
cleanup() {
  [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null && wait "$server_pid" 2>/dev/null
  [ -n "${KEEP:-}" ] || rm -rf "$work"
}
trap cleanup EXIT

browser=$(command -v chromium || command -v chromium-browser || true)
if [ -z "$browser" ]; then
  echo "FAIL: no chromium to test the page with (scripts/setup.sh installs it)"
  exit 1
fi

env -u BOXDIM_CAMERA BOXDIM_SCENE="placed=0.3" "$cli" serve --listen 127.0.0.1:0 --data "$work/data" \
  > "$work/out" 2> "$work/err" &
server_pid=$!
url=
for _ in $(seq 100); do
  url=$(grep -o 'http://127\.0\.0\.1:[0-9]*/' "$work/out" 2>/dev/null)
  [ -n "$url" ] && break
  sleep 0.1
done
if [ -z "$url" ]; then
  echo "FAIL: the service did not say where it listens"; cat "$work/err"; exit 1
fi

run_browser() {
  timeout 60 "$browser" --headless --no-sandbox --disable-gpu --no-first-run \
    --user-data-dir="$work/profile" --window-size=1280,900 --virtual-time-budget=3000 "$@" "$url" \
    2> "$work/browser.err"
}

# The box is measured within a second of being put down; the page then loads
# it from the history and the event stream.
dom=
for _ in $(seq 15); do
  dom=$(run_browser --dump-dom)
  grep -q 'class="measurement"' <<< "$dom" && break
  sleep 1
done
failures=0
check() {
  if eval "$2"; then echo "ok: $1"; else echo "FAIL: $1"; failures=$((failures + 1)); fi
}
check "a measurement row in the history table" "grep -q 'class=\"measurement\"' <<< \"\$dom\""
dimensions=$(grep -o 'id="current-dimensions"[^>]*>[^<]*' <<< "$dom" | sed 's/.*>//')
echo "current box: $dimensions"
read -r length width height < <(sed 's/[^0-9.]\+/ /g' <<< "$dimensions")
within() { awk -v a="$1" -v b="$2" 'BEGIN { d = a - b; exit !(a != "" && d <= 5 && d >= -5) }'; }
check "length within 5 mm of 400" "within '${length:-}' 400"
check "width within 5 mm of 300" "within '${width:-}' 300"
check "height within 5 mm of 200" "within '${height:-}' 200"
run_browser --screenshot="$artifacts/web_page.png" > /dev/null
check "a screenshot of the page" "[ -s '$artifacts/web_page.png' ]"
exit $((failures > 0))
