#!/usr/bin/env bash
# labels: unit
# plenavue capture as a script uses it: stored settings, exit codes, one-line
# errors, and no damage when a write fails.
set -euo pipefail
: "${PLENAVUE:?}" "${PV_SOURCE_DIR:?}"
work="$(mktemp -d)"
locked=""
cleanup() {
  [ -n "$locked" ] && chattr -i "$locked" 2>/dev/null || true
  chmod -R u+w "$work" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
export HOME="$work" XDG_CONFIG_HOME="$work/config"
fixture="$PV_SOURCE_DIR/fixtures/one-screen.json"
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

run() {  # run ARGS...: sets status, out, err
  status=0
  "$PLENAVUE" "$@" >"$work/out" 2>"$work/err" || status=$?
  out="$(cat "$work/out")"
  err="$(cat "$work/err")"
}

# No folder stored and none given: exit 2 and say so.
run capture -q --desktop "$fixture"
[ "$status" -eq 2 ] || fail "no folder: exit $status"
grep -q -- "--output" <<<"$err" || fail "no folder: message does not say what to give: $err"

run capture -q --desktop "$fixture" --format tiff --output "$work"
[ "$status" -eq 2 ] || fail "unknown format: exit $status"

# The stored folder and format are used; the printed path is the file written.
mkdir -p "$work/config/Veltrano" "$work/stored"
printf '[General]\noutput=%s\nformat=2\n' "$work/stored" >"$work/config/Veltrano/Plenavue.conf"
run capture -q --desktop "$fixture"
[ "$status" -eq 0 ] || fail "stored folder: exit $status: $err"
[[ "$out" == "$work/stored/"*.png ]] || fail "stored folder and format not used: $out"
[ -s "$out" ] || fail "printed path $out is not a file"
rm -f "$work/config/Veltrano/Plenavue.conf"

# Status texts go to standard error, the path alone to standard output.
run capture --desktop "$fixture" --format grouped --output "$work"
[ "$status" -eq 0 ] || fail "capture: exit $status: $err"
[ "$(wc -l <<<"$out")" -eq 1 ] && [ -s "$out" ] || fail "stdout is not one path: $out"
for text in "Compressing: Untitled" "Writing..." "Writing: Notes" "Writing composite..." "Ready"; do
  grep -qxF "$text" <<<"$err" || fail "status '$text' missing from stderr"
done

# A folder that cannot be written to: non-zero exit, one line naming the path,
# the earlier file kept as it was, no temporary left behind.
mkdir "$work/locked"
target="$work/locked/capture.psd"
echo "earlier file" >"$target"
chmod 555 "$work/locked"
# Permissions do not stop root; an immutable folder does.
if [ "$(id -u)" -eq 0 ]; then
  chattr +i "$work/locked" && locked="$work/locked" || echo "note: chattr unavailable" >&2
fi
if [ "$(id -u)" -eq 0 ] && [ -z "$locked" ]; then
  echo "note: running as root without chattr: the read-only folder case is skipped" >&2
else
run capture -q --desktop "$fixture" --format grouped --file "$target"
[ "$status" -ne 0 ] || fail "read-only folder: exit 0"
[ "$(grep -c . <<<"$err")" -ge 1 ] || fail "read-only folder: no message"
grep "plenavue capture:" <<<"$err" | grep -qF "$target" || fail "read-only folder: message does not name the path: $err"
[ "$(grep -c . <<<"$err")" -eq 1 ] || fail "read-only folder: the failure is not one line: $err"
[ "$(cat "$target")" = "earlier file" ] || fail "read-only folder: the earlier file changed"
[ "$(ls -A "$work/locked")" = "capture.psd" ] || fail "read-only folder: left behind: $(ls -A "$work/locked")"
fi
[ -n "$locked" ] && chattr -i "$locked"
locked=""
chmod 755 "$work/locked"

# A folder that does not exist.
run capture -q --desktop "$fixture" --format grouped --output "$work/missing"
[ "$status" -ne 0 ] || fail "missing folder: exit 0"
grep -qF "$work/missing" <<<"$err" || fail "missing folder: message does not name it: $err"

# Usage errors: one line on stderr and exit 2, whatever the mistake.
usage_cases=(
  "capture --bogus"
  "frobnicate"
  "capture --desktop $fixture --output $work --file $work/x.psd"
  "capture --desktop $fixture --format tiff --output $work"
  "capture --desktop $fixture --file $work/x.png --format grouped"
  "capture --desktop $fixture --file $work/x.jpg"
  "capture --desktop $PV_SOURCE_DIR/tests/fixtures/bad/zero-display.json --output $work"
)
for args in "${usage_cases[@]}"; do
  run $args
  [ "$status" -eq 2 ] || fail "usage error '$args': exit $status"
  [ "$(grep -c . <<<"$err")" -ge 1 ] || fail "usage error '$args': no message"
done
for empty in --file --output; do
  run capture -q --desktop "$fixture" "$empty" ""
  [ "$status" -eq 2 ] && [ "$(grep -c . <<<"$err")" -eq 1 ] || fail "$empty '': exit $status, $err"
done
[ ! -e "$work/x.png" ] && [ ! -e "$work/x.psd" ] || fail "a refused command wrote a file"

# The extension of --file picks the format when --format is not given.
run capture -q --desktop "$fixture" --file "$work/picked.png"
[ "$status" -eq 0 ] && [ "$(head -c 4 "$work/picked.png" | tail -c 3)" = "PNG" ] || fail "--file x.png: not a PNG"
run capture -q --desktop "$fixture" --file "$work/picked.psd"
[ "$status" -eq 0 ] && [ "$(head -c 4 "$work/picked.psd")" = "8BPS" ] || fail "--file x.psd: not a PSD"

# A file where the folder should be: one line that says so, exit 1.
touch "$work/plain-file"
run capture -q --desktop "$fixture" --output "$work/plain-file"
[ "$status" -eq 1 ] && [ "$(grep -c . <<<"$err")" -eq 1 ] || fail "file as folder: exit $status, $err"
grep -q "is not a folder" <<<"$err" || fail "file as folder: reason missing: $err"

# Two processes in the same second: two files, neither replaced.
mkdir "$work/same-second"
"$PLENAVUE" capture -q --desktop "$fixture" --format grouped --output "$work/same-second" >"$work/a.out" 2>&1 &
"$PLENAVUE" capture -q --desktop "$fixture" --format grouped --output "$work/same-second" >"$work/b.out" 2>&1 &
wait
[ "$(ls "$work/same-second" | wc -l)" -eq 2 ] || fail "two processes: $(ls "$work/same-second")"

# The desktop application with no display: one line and exit 1, no abort.
status=0
env -u DISPLAY -u WAYLAND_DISPLAY "$PLENAVUE" >"$work/out" 2>"$work/err" || status=$?
[ "$status" -eq 1 ] && [ "$(grep -c . "$work/err")" -eq 1 ] || fail "tray without display: exit $status, $(cat "$work/err")"

# Every window unreadable: nothing written, non-zero.
cat >"$work/dark.json" <<'JSON'
{ "hostName": "studio",
  "screens": [ { "displayId": 1, "frame": [0, 0, 400, 300], "backingScaleFactor": 1.0 } ],
  "windows": [ { "number": 1, "ownerName": "Editor", "ownerPID": 5, "title": "Gone",
                 "bounds": [10, 10, 100, 100], "picture": null } ] }
JSON
run capture -q --desktop "$work/dark.json" --format grouped --file "$work/dark.psd"
[ "$status" -ne 0 ] || fail "nothing capturable: exit 0"
[ ! -e "$work/dark.psd" ] || fail "nothing capturable: a file was written"

[ "$failures" -eq 0 ] && echo "command line: all as expected"
exit "$failures"
