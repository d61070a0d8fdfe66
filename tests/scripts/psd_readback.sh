#!/usr/bin/env bash
# labels: readers
# Captures of every shipped fixture, grouped and ungrouped, with and without
# shadows, read back with psd-tools and compared with what each fixture implies
# (layers, their order and places, the merged image, and the layers composed
# against the merged image); and a PNG capture read back with PIL.
set -euo pipefail
: "${PLENAVUE:?}" "${PV_SOURCE_DIR:?}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export HOME="$work" XDG_CONFIG_HOME="$work/config"
check="$PV_SOURCE_DIR/tests/tools/check_capture.py"
failures=0

capture_and_check() {  # fixture format shadow [ignore-system]
  local fixture="$1" format="$2" shadow="$3" ignore="${4:-keep-system}"
  local file="$work/$fixture-$format-$shadow-$ignore.psd"
  if ! "$PLENAVUE" capture -q --desktop "$PV_SOURCE_DIR/fixtures/$fixture.json" --format "$format" \
      "--$shadow" "--$ignore" --file "$file" >/dev/null; then
    echo "FAIL: capture of $fixture ($format, $shadow, $ignore)" >&2
    failures=$((failures + 1))
    return
  fi
  /usr/bin/python3 "$check" "$PV_SOURCE_DIR/fixtures/$fixture.json" "$file" "$format" "$shadow" "$ignore" ||
    failures=$((failures + 1))
}

for fixture in one-screen two-screens busy-desktop; do
  for format in grouped ungrouped; do
    for shadow in shadow no-shadow; do
      capture_and_check "$fixture" "$format" "$shadow"
    done
  done
done
capture_and_check busy-desktop grouped shadow ignore-system
# Three and four screens stacked, offset and in a grid: the grouped file with
# shadows, and the ungrouped one whose layers must make the merged image.
for fixture in three-stacked three-offset four-grid; do
  capture_and_check "$fixture" grouped shadow
  capture_and_check "$fixture" ungrouped no-shadow
done
# Names in many scripts: whole in the Unicode name blocks, "?" in the records' own names.
capture_and_check names grouped no-shadow

# PNG: the desktop picture itself, straight alpha, at the fixture's scale.
png="$work/desktop.png"
"$PLENAVUE" capture -q --desktop "$PV_SOURCE_DIR/fixtures/two-screens.json" --format png --file "$png" >/dev/null
/usr/bin/python3 - "$png" <<'PY' || failures=$((failures + 1))
import sys
from PIL import Image
img = Image.open(sys.argv[1])
assert img.mode == "RGBA", img.mode
assert img.size == (6720, 2400), img.size
# "Left" (green) on the main screen, whose top is 300 points below the taller side screen's.
assert img.getpixel((2 * 200, 2 * (300 + 150))) == (40, 160, 40, 255), img.getpixel((400, 900))
# Above the main screen: no screen there, opaque black.
assert img.getpixel((10, 10)) == (0, 0, 0, 255), img.getpixel((10, 10))
print("ok desktop.png")
PY

exit "$failures"
