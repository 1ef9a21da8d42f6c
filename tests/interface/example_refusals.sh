#!/usr/bin/env bash
# The example program refuses what it cannot read, with one line naming the
# input and exit status 2, and never waits on or runs out of memory for it:
# a folder, an endless device, a pipe, numbers written in another base or not
# numbers at all. Usage: example_refusals.sh PROGRAM
set -u
program=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
head -c 614400 /dev/zero > "$scratch/frame.raw"
mkfifo "$scratch/pipe"
failures=0
expect() {  # expect MESSAGE ARGS...: exit status 2 and MESSAGE on standard error
  local message=$1
  shift
  local err status
  err=$(timeout 20 "$program" "$@" 2>&1 >/dev/null)
  status=$?
  if [ "$status" -ne 2 ] || [ "$err" != "$program: $message" ]; then
    echo "FAILED: $* -> status $status, said: $err (expected: $program: $message)"
    failures=$((failures + 1))
  fi
}
expect "$scratch: is a directory" "$scratch"
expect "/dev/zero: not a regular file" /dev/zero
expect "$scratch/pipe: not a regular file" "$scratch/pipe"
expect "$scratch/none: no such file" "$scratch/none"
expect "'0x280' is not a whole decimal number" "$scratch/frame.raw" 0x280 480
expect "'nan' is not a decimal number" "$scratch/frame.raw" 640 480 nan 500 320 240
expect "$scratch/frame.raw holds more than 2 bytes, not the 2 of a 1 x 1 depth image" \
  "$scratch/frame.raw" 1 1
[ "$failures" -eq 0 ] && echo "every refusal as expected"
exit "$failures"
