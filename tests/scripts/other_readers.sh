#!/usr/bin/env bash
# labels: readers
# psd-tools, ImageMagick and GIMP open grouped captures without error and see
# their layers: psd-tools decodes every layer, ImageMagick sees the composite
# plus every pixel layer (it drops groups by design), GIMP one top-level group
# per application run with the windows inside. The busy desktop, and shadowed
# windows at the fractional backing scales 1.25, 1.5, 1.75 and 2.5.
set -euo pipefail
: "${PLENAVUE:?}" "${PV_SOURCE_DIR:?}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export HOME="$work" XDG_CONFIG_HOME="$work/config"
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

# The busy desktop, and a desktop at each fractional backing scale with
# shadows, whose layers stand at fractional positions before rounding.
"$PLENAVUE" capture -q --desktop "$PV_SOURCE_DIR/fixtures/busy-desktop.json" --format grouped --shadow \
  --file "$work/busy.psd" >/dev/null
files=("$work/busy.psd")
for scale in 1.25 1.5 1.75 2.5; do
  cat >"$work/scale-$scale.json" <<JSON
{ "hostName": "h", "screens": [ { "displayId": 1, "frame": [0, 0, 400, 300], "backingScaleFactor": $scale } ],
  "windows": [
    { "number": 1, "ownerName": "Editor", "ownerPID": 5, "title": "Fill", "bounds": [10, 10, 101, 77],
      "picture": { "fill": [200, 30, 30, 255] } },
    { "number": 2, "ownerName": "Viewer", "ownerPID": 6, "title": "Glass", "bounds": [151.3, 60.7, 133, 91],
      "picture": { "fill": [20, 90, 200, 160] } } ] }
JSON
  "$PLENAVUE" capture -q --desktop "$work/scale-$scale.json" --format grouped --shadow \
    --file "$work/scale-$scale.psd" >/dev/null || fail "scale $scale: capture failed"
  files+=("$work/scale-$scale.psd")
done

declare -A groups layers
for psd in "${files[@]}"; do
  name="$(basename "$psd")"
  # What the file should hold, read with psd-tools, every layer's pixels decoded.
  if read -r g l < <(/usr/bin/python3 - "$psd" <<'PY'
import sys
from psd_tools import PSDImage
psd = PSDImage.open(sys.argv[1])
pixel = [l for l in psd.descendants() if not l.is_group()]
for layer in pixel:
    assert layer.numpy().shape[:2] == (layer.height, layer.width), layer.name
print(len(list(psd)), len(pixel))
PY
  ); then
    groups[$name]=$g layers[$name]=$l
    echo "psd-tools: $name: $g groups, $l pixel layers"
    [ "$g" -gt 1 ] && [ "$l" -ge "$g" ] || fail "$name: unexpected structure: $g groups, $l layers"
  else
    fail "psd-tools cannot read $name"
    continue
  fi

  # ImageMagick (the Debian one; /usr/local/bin/convert may be something else).
  if identify_out="$(/usr/bin/identify "$psd" 2>"$work/im.err")"; then
    frames="$(grep -c ' PSD ' <<<"$identify_out")"
    [ "$frames" -eq $((l + 1)) ] || fail "ImageMagick sees $frames images in $name, expected $((l + 1))"
    /usr/bin/convert "$psd[0]" "$work/composite.png" 2>>"$work/im.err" || fail "ImageMagick cannot convert $name"
  else
    fail "ImageMagick cannot read $name: $(cat "$work/im.err")"
  fi
done

# GIMP in batch mode, all files in one run: the top-level items and the layers
# inside groups of each.
loads=""
for psd in "${files[@]}"; do loads="$loads (count \"$psd\" \"$(basename "$psd")\")"; done
script="(define (count file name)
          (let* ((img (car (gimp-file-load RUN-NONINTERACTIVE file name)))
                 (top (gimp-image-get-layers img))
                 (inner 0))
            (for-each (lambda (item)
                        (if (= (car (gimp-item-is-group item)) 1)
                            (set! inner (+ inner (car (gimp-item-get-children item))))))
                      (vector->list (cadr top)))
            (gimp-message (string-append \"PV-COUNT \" name \" \" (number->string (car top)) \" \"
                                         (number->string inner)))))
        $loads
        (gimp-quit 0)"
gimp_out="$(timeout 300 gimp -i -b "$script" -b '(gimp-quit 1)' 2>&1 || true)"
for psd in "${files[@]}"; do
  name="$(basename "$psd")"
  [ -n "${groups[$name]:-}" ] || continue
  counts="$(grep -o "PV-COUNT $name [0-9]* [0-9]*" <<<"$gimp_out" || true)"
  if [ -z "$counts" ]; then
    fail "GIMP did not load $name: $gimp_out"
    continue
  fi
  read -r _ _ gimp_top gimp_inner <<<"$counts"
  echo "GIMP: $name: $gimp_top top-level groups, $gimp_inner layers inside them"
  [ "$gimp_top" -eq "${groups[$name]}" ] || fail "GIMP sees $gimp_top top-level items in $name, expected ${groups[$name]}"
  [ "$gimp_inner" -eq "${layers[$name]}" ] || fail "GIMP sees $gimp_inner layers in groups in $name, expected ${layers[$name]}"
done

exit "$failures"
