#!/usr/bin/env bash
# labels: unit
# plenavue capture as a script uses it: stored settings, exit codes, one-line
# errors, the format picked by the file's extension, and no damage when a
# write fails.
source "$(dirname "$0")/lib.sh"
fixture="$src/fixtures/one-screen.json"

# Usage errors: one line on stderr and exit 2, whatever the mistake; nothing written.
usage_cases=(
  "capture -q --desktop $fixture"
  "capture --bogus"
  "frobnicate"
  "capture --desktop $fixture --output $work --file $work/x.psd"
  "capture --desktop $fixture --format tiff --output $work"
  "capture --desktop $fixture --file $work/x.png --format grouped"
  "capture --desktop $fixture --file $work/x.jpg"
  "capture --desktop $src/tests/fixtures/bad/zero-display.json --output $work"
)
for args in "${usage_cases[@]}"; do
  run $args
  [ "$status" -eq 2 ] && [ "$(lines "$err")" -ge 1 ] || fail "usage error '$args': exit $status, $err"
done
grep -q -- "--output" <<<"$(run capture -q --desktop "$fixture"; echo "$err")" || fail "no folder: the message does not say what to give"
for empty in --file --output; do
  run capture -q --desktop "$fixture" "$empty" ""
  [ "$status" -eq 2 ] && [ "$(lines "$err")" -eq 1 ] || fail "$empty '': exit $status, $err"
done
[ ! -e "$work/x.png" ] && [ ! -e "$work/x.psd" ] || fail "a refused command wrote a file"

# The stored folder and format are used; the printed path is the file written.
mkdir "$work/stored"
settings "output=$work/stored" format=2
run capture -q --desktop "$fixture"
[ "$status" -eq 0 ] && [[ "$out" == "$work/stored/"*.png ]] && [ -s "$out" ] || fail "stored folder and format: $status $out $err"
rm -f "$XDG_CONFIG_HOME/Veltrano/Plenavue.conf"

# Status texts go to standard error, the path alone to standard output.
run capture --desktop "$fixture" --format grouped --output "$work"
[ "$status" -eq 0 ] && [ "$(wc -l <<<"$out")" -eq 1 ] && [ -s "$out" ] || fail "stdout is not one path: $out"
for text in "Compressing: Untitled" "Writing..." "Writing: Notes" "Writing composite..." "Ready"; do
  grep -qxF "$text" <<<"$err" || fail "status '$text' missing from stderr"
done

# The extension of --file picks the format when --format is not given.
run capture -q --desktop "$fixture" --file "$work/picked.png"
[ "$status" -eq 0 ] && [ "$(head -c 4 "$work/picked.png" | tail -c 3)" = "PNG" ] || fail "--file x.png: not a PNG"
run capture -q --desktop "$fixture" --file "$work/picked.psd"
[ "$status" -eq 0 ] && [ "$(head -c 4 "$work/picked.psd")" = "8BPS" ] || fail "--file x.psd: not a PSD"

# A folder that cannot be written to: exit 1, one line naming the path, the
# earlier file kept as it was, no temporary left behind. Permissions do not
# stop root; an immutable folder does.
mkdir "$work/locked"
target="$work/locked/capture.psd"
echo "earlier file" >"$target"
chmod 555 "$work/locked"
if [ "$(id -u)" -ne 0 ] || { chattr +i "$work/locked" && on_exit="chattr -i $work/locked"; }; then
  run capture -q --desktop "$fixture" --format grouped --file "$target"
  [ "$status" -ne 0 ] || fail "read-only folder: exit 0"
  [ "$(lines "$err")" -eq 1 ] && grep "plenavue capture:" <<<"$err" | grep -qF "$target" ||
    fail "read-only folder: not one line naming the path: $err"
  [ "$(cat "$target")" = "earlier file" ] || fail "read-only folder: the earlier file changed"
  [ "$(ls -A "$work/locked")" = "capture.psd" ] || fail "read-only folder: left behind: $(ls -A "$work/locked")"
else
  echo "note: running as root without chattr: the read-only folder case is skipped" >&2
fi

# A file where the folder should be: one line that says so, exit 1.
touch "$work/plain-file"
run capture -q --desktop "$fixture" --output "$work/plain-file"
[ "$status" -eq 1 ] && [ "$(lines "$err")" -eq 1 ] && grep -q "is not a folder" <<<"$err" || fail "file as folder: $status, $err"

# Two processes in the same second: two files, neither replaced.
mkdir "$work/same-second"
for _ in 1 2; do "$bin" capture -q --desktop "$fixture" --format grouped --output "$work/same-second" >/dev/null 2>&1 & done
wait
[ "$(ls "$work/same-second" | wc -l)" -eq 2 ] || fail "two processes: $(ls "$work/same-second")"

# The desktop application with no display: one line and exit 1, no abort.
status=0
env -u DISPLAY -u WAYLAND_DISPLAY "$bin" >/dev/null 2>"$work/err" || status=$?
[ "$status" -eq 1 ] && [ "$(grep -c . "$work/err")" -eq 1 ] || fail "tray without display: exit $status, $(cat "$work/err")"

finish
