# Shell helpers for running boxdim in a virtual X display and driving its
# windows with xdotool. Sourced by the end-to-end tests.

# check "what" COMMAND...: runs COMMAND and counts it as passed or failed,
# naming what failed on standard error. report_checks prints the counts and
# fails when any check did.
passed=0
failed=0
check() {
  local what=$1
  shift
  if "$@"; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    echo "FAILED: $what" >&2
  fi
}
report_checks() {
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}

# Starts Xvfb on a free display number and exports DISPLAY.
start_virtual_display() {
  local number
  for number in $(seq 90 140); do
    [ -e "/tmp/.X${number}-lock" ] && continue
    Xvfb ":${number}" -screen 0 1600x1000x24 -nolisten tcp >/dev/null 2>&1 &
    XVFB_PID=$!
    export DISPLAY=":${number}"
    local tries
    for tries in $(seq 1 50); do
      xdpyinfo >/dev/null 2>&1 && return 0
      kill -0 "$XVFB_PID" 2>/dev/null || break
      sleep 0.1
    done
  done
  echo "could not start Xvfb" >&2
  return 1
}

stop_virtual_display() {
  [ -n "${XVFB_PID:-}" ] && kill "$XVFB_PID" 2>/dev/null && wait "$XVFB_PID" 2>/dev/null
  return 0
}

# wait_for SECONDS COMMAND...: retries COMMAND every 0.2 s until it succeeds.
wait_for() {
  local deadline=$(( $(date +%s) + $1 ))
  shift
  until "$@"; do
    [ "$(date +%s)" -ge "$deadline" ] && return 1
    sleep 0.2
  done
}

# The id of the window whose title is exactly $1, if it exists.
window_id() {
  xdotool search --name "^$1\$" 2>/dev/null | head -n 1
}

window_exists() {
  [ -n "$(window_id "$1")" ]
}

# press WINDOW KEY: focuses the window and types the key into it.
press() {
  local id
  id=$(window_id "$1")
  [ -n "$id" ] || { echo "no window $1" >&2; return 1; }
  xdotool windowfocus --sync "$id" 2>/dev/null || xdotool windowfocus "$id"
  xdotool key --clearmodifiers "$2"
}

# press_until WINDOW KEY COMMAND...: presses KEY until COMMAND succeeds (up to
# BOXDIM_E2E_PRESSES presses, default five, 4 s each). The program's frame
# handler also reads keys (and drops them), so a single press can go unseen;
# the slower the measurement, the more presses it takes.
press_until() {
  local window=$1 key=$2 attempt
  shift 2
  for attempt in $(seq 1 "${BOXDIM_E2E_PRESSES:-5}"); do
    press "$window" "$key" || return 1
    wait_for 4 "$@" && return 0
  done
  return 1
}
