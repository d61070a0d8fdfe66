#!/usr/bin/env bash
# labels: readers
# Captures of every shipped fixture, grouped and ungrouped, with and without
# shadows, as psd-tools reads them back: the canvas, every layer front to back
# with its names, box and pixels' digest, and the merged image's digest, held
# against the outlines in tests/expected/capture (PV_UPDATE_EXPECTED=1 writes
# them anew). And a PNG capture read back with PIL.
source "$(dirname "$0")/lib.sh"
expected="$src/tests/expected/capture"

names=()
capture() {  # fixture format shadow [ignore-system]
  local name="$1-$2-$3${4:+-$4}"
  if "$bin" capture -q --desktop "$src/fixtures/$1.json" --format "$2" "--$3" "--${4:-keep-system}" \
    --file "$work/$name.psd" >/dev/null; then names+=("$name"); else fail "capture $name"; fi
}
for fixture in one-screen two-screens busy-desktop; do
  for format in grouped ungrouped; do
    capture "$fixture" "$format" shadow
    capture "$fixture" "$format" no-shadow
  done
done
capture busy-desktop grouped shadow ignore-system
# Three and four screens stacked, offset and in a grid; names in many scripts.
for fixture in three-stacked three-offset four-grid; do
  capture "$fixture" grouped shadow
  capture "$fixture" ungrouped no-shadow
done
capture names grouped no-shadow

# One psd-tools run reads them all (it is slow to start).
files=("${names[@]/#/$work/}")
/usr/bin/python3 "$src/tests/tools/psd_dump.py" --summary "${files[@]/%/.psd}" || fail "psd-tools"
for name in "${names[@]}"; do
  [ -z "${PV_UPDATE_EXPECTED:-}" ] || cp "$work/$name.txt" "$expected/$name.txt"
  diff -u "$expected/$name.txt" "$work/$name.txt" || fail "$name differs from its expected outline"
done

# PNG: the desktop picture itself, straight alpha, at the fixture's scale.
"$bin" capture -q --desktop "$src/fixtures/two-screens.json" --format png --file "$work/desktop.png" >/dev/null
/usr/bin/python3 - "$work/desktop.png" <<'PY' || fail "desktop.png"
import sys
from PIL import Image
img = Image.open(sys.argv[1])
assert img.mode == "RGBA" and img.size == (6720, 2400), (img.mode, img.size)
# "Left" (green) on the main screen, whose top is 300 points below the taller side screen's;
# above the main screen no screen: opaque black.
assert img.getpixel((2 * 200, 2 * (300 + 150))) == (40, 160, 40, 255), img.getpixel((400, 900))
assert img.getpixel((10, 10)) == (0, 0, 0, 255), img.getpixel((10, 10))
PY
finish
