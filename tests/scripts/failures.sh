#!/usr/bin/env bash
# labels: unit
# Failures end in one line and an exit code, never an abort: bad fixtures
# (2), unreachable displays, file-system errors, nothing capturable and
# memory running out (1);
# -q never hides the failure; printed paths cannot be split by a newline; a
# signal mid-write removes the temporary, and what a killed capture left is
# swept by the next one.
source "$(dirname "$0")/lib.sh"
unset DISPLAY WAYLAND_DISPLAY

# one_window NAME SCALE BOUNDS [PICTURE]: a fixture of one screen and one window.
one_window() {
  local picture="${4:-}"
  [ -n "$picture" ] || picture='{ "fill": [200, 30, 30, 255] }'
  cat >"$work/$1.json" <<JSON
{ "hostName": "h", "screens": [ { "displayId": 1, "frame": [0, 0, 400, 300], "backingScaleFactor": $2 } ],
  "windows": [ { "number": 1, "ownerName": "Editor", "ownerPID": 5, "title": "W", "bounds": $3,
                 "picture": $picture } ] }
JSON
}
one_window overflow 1 '[10, 10, 1e400, 77]'
one_window scale-overflow 1e400 '[10, 10, 100, 77]'
one_window far 1 '[10, 10, 3e9, 77]'
one_window enormous 1 '[10, 10, 200000, 200000]'
one_window png-folder 1 '[10, 10, 100, 77]' '{ "png": "." }'
one_window small 1 '[10, 10, 100, 77]'
one_window dark 1 '[10, 10, 100, 77]' null
fixture="$work/small.json"

# A folder of a 4080-byte path: the paths of the files in it are longer than
# the system takes.
long="$work"
while [ ${#long} -lt 3830 ]; do long="$long/$(printf 'd%.0s' $(seq 250))"; done
long="$long/$(printf 'e%.0s' $(seq $((4080 - ${#long} - 1))))"
mkdir -p "$long"

# Each case: the expected exit code, then the arguments. One line each, no abort.
cases=(
  "2 list --desktop $work/overflow.json"
  "2 list --desktop $work/scale-overflow.json"
  "2 list --desktop $work/far.json"
  "2 list --desktop $work/enormous.json"
  "2 list --desktop $work/png-folder.json"
  "2 list --desktop $work"
  "2 capture -q --desktop $work --output $work"
  "1 list"
  "1 capture -q --output $work"
  "1 capture -q --desktop $fixture --output $long"
  "1 capture --desktop $fixture --output $long"
  "1 capture -q --desktop $fixture --file $work/missing/x.psd"
  "1 capture --desktop $fixture --file $work/missing/x.psd"
  "1 capture -q --desktop $fixture --output $work/missing"
  "1 capture -q --desktop $work/dark.json --format grouped --file $work/dark.psd"
)
for c in "${cases[@]}"; do
  read -r expected args <<<"$c"
  run $args
  [ "$status" -eq "$expected" ] || fail "'$args': exit $status, expected $expected: $err"
  [ "$(grep -c '^plenavue' <<<"$err")" -eq 1 ] || fail "'$args': not one failure line: $err"
  if grep -q "terminate called" <<<"$err"; then fail "'$args': aborted"; fi
done
[ ! -e "$work/dark.psd" ] || fail "nothing capturable, yet a file was written"
# Without -q the status texts come first, the failure last and only once.
run capture --desktop "$fixture" --file "$work/missing/x.psd"
[ "$(grep -c 'missing/x.psd' <<<"$err")" -eq 1 ] || fail "the failure is printed more than once: $err"

# A newline in the folder's name is printed escaped: the path stays one line.
mkdir "$work/two
lines"
run capture -q --desktop "$fixture" --format grouped --output "$work/two
lines"
[ "$status" -eq 0 ] || fail "newline folder: exit $status: $err"
[ "$(wc -l <<<"$out")" -eq 1 ] && [[ "$out" == "$work/two\\nlines/"*.psd ]] || fail "newline folder: printed $out"

# Memory running out while the pictures are made: one line, exit 1. Not under
# AddressSanitizer, whose allocator ends the program instead of failing.
if ldd "$bin" | grep -q libasan; then
  echo "note: out-of-memory case skipped in the AddressSanitizer build" >&2
else
  one_window huge 1 '[0, 0, 25000, 25000]'
  status=0
  (ulimit -v 1500000 && exec "$bin" capture -q --desktop "$work/huge.json" --output "$work") \
    >"$work/out" 2>"$work/err" || status=$?
  err="$(cat "$work/err")"
  [ "$status" -eq 1 ] && [ "$(grep -c . <<<"$err")" -eq 1 ] && grep -q "out of memory" <<<"$err" ||
    fail "out of memory: exit $status: $err"
fi

# A capture big enough to be caught writing: a desktop of incompressible pixels.
/usr/bin/python3 - "$work/noise.png" <<'PY'
import sys
import numpy as np
from PIL import Image
pixels = np.random.default_rng(7).integers(0, 256, (1000, 1600, 4), dtype=np.uint8)
Image.fromarray(pixels, "RGBA").save(sys.argv[1], compress_level=0)
PY
cat >"$work/noise.json" <<'JSON'
{ "hostName": "h", "screens": [ { "displayId": 1, "frame": [0, 0, 1600, 1000], "backingScaleFactor": 1 } ],
  "windows": [ { "number": 1, "ownerName": "Noise", "ownerPID": 5, "title": "Noise",
                 "bounds": [0, 0, 1600, 1000], "picture": { "png": "noise.png" } } ],
  "desktop": { "png": "noise.png" } }
JSON
mkdir "$work/shots"

# capture_and_kill SIGNAL: starts a capture and sends the signal while its
# temporary exists; sets status and err. Retries when the capture ends first
# (the file is written in one short burst once everything is encoded), or
# completes before the signal arrives.
capture_and_kill() {
  for _ in $(seq 20); do
    "$bin" capture -q --desktop "$work/noise.json" --format grouped --output "$work/shots" \
      >"$work/out" 2>"$work/err" &
    local pid=$! seen=""
    for _ in $(seq 1000); do
      if ls -A "$work/shots" | grep -q "\.plenavue-$pid-"; then seen=1; break; fi
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.01
    done
    if [ -n "$seen" ]; then
      kill -s "$1" "$pid"
      status=0
      wait "$pid" || status=$?
      err="$(cat "$work/err")"
      # Exit 0: the file was in place before the signal came.
      [ "$status" -eq 0 ] || return 0
    fi
    wait "$pid" 2>/dev/null || true
    rm -f "$work"/shots/*.psd
  done
  fail "$1: never caught a capture while it was writing"
  return 1
}

for signal in TERM INT HUP; do
  if capture_and_kill "$signal"; then
    [ "$status" -eq 1 ] || fail "SIG$signal: exit $status"
    [ "$err" = "plenavue capture: stopped by SIG$signal before the capture was complete" ] || fail "SIG$signal: $err"
    [ -z "$(ls -A "$work/shots" | grep plenavue-)" ] || fail "SIG$signal left $(ls -A "$work/shots")"
  fi
done

# A capture killed outright leaves its temporary; the next capture sweeps it.
if capture_and_kill KILL; then
  left="$(ls -A "$work/shots" | grep plenavue- || true)"
  [ -n "$left" ] || fail "SIGKILL left no temporary (the sweep is not tested)"
  run capture -q --desktop "$fixture" --format grouped --output "$work/shots"
  [ "$status" -eq 0 ] || fail "capture after SIGKILL: exit $status: $err"
  [ -z "$(ls -A "$work/shots" | grep plenavue- || true)" ] || fail "stale temporary kept: $(ls -A "$work/shots")"
fi

finish
