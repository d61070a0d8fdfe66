#!/usr/bin/env bash
# labels: readers
# psd-tools, ImageMagick and GIMP open grouped captures without error and see
# their layers and names: psd-tools decodes every layer, ImageMagick sees the
# composite plus every pixel layer (it drops groups by design) under the
# records' own names, GIMP one top-level group per application with the
# windows inside, every name whole. The busy desktop, names in many scripts,
# and shadowed windows at the fractional backing scales 1.25, 1.5, 1.75 and 2.5.
source "$(dirname "$0")/lib.sh"

capture() { "$bin" capture -q --desktop "$1" --format grouped "$2" --file "$work/$3.psd" >/dev/null || fail "capture of $3"; }
capture "$src/fixtures/busy-desktop.json" --shadow busy
capture "$src/fixtures/names.json" --no-shadow names
for scale in 1.25 1.5 1.75 2.5; do
  cat >"$work/scale-$scale.json" <<JSON
{ "hostName": "h", "screens": [ { "displayId": 1, "frame": [0, 0, 400, 300], "backingScaleFactor": $scale } ],
  "windows": [
    { "number": 1, "ownerName": "Editor", "ownerPID": 5, "title": "Fill", "bounds": [10, 10, 101, 77],
      "picture": { "fill": [200, 30, 30, 255] } },
    { "number": 2, "ownerName": "Viewer", "ownerPID": 6, "title": "Glass", "bounds": [151.3, 60.7, 133, 91],
      "picture": { "fill": [20, 90, 200, 160] } } ] }
JSON
  capture "$work/scale-$scale.json" --shadow "scale-$scale"
done
files=("$work"/*.psd)

# What each file holds as psd-tools reads it, every layer's pixels decoded:
# "FILE GROUPS LAYERS", and the names (whole, and the records' own) of names.psd.
/usr/bin/python3 - "${files[@]}" >"$work/expected.txt" <<'PY' || fail "psd-tools cannot read every file"
import sys
from psd_tools import PSDImage
for path in sys.argv[1:]:
    psd = PSDImage.open(path)
    pixel = [l for l in psd.descendants() if not l.is_group()]
    for layer in pixel:
        assert layer.numpy().shape[:2] == (layer.height, layer.width), layer.name
    print("count", path, len(list(psd)), len(pixel))
    if path.endswith("/names.psd"):
        for item in psd.descendants():
            print("name", item.name.encode("utf-16-be", "surrogatepass").decode("utf-16-be"))
            if not item.is_group():
                print("record", item._record.name)
PY
while read -r _ psd g l; do
  [ "$g" -gt 1 ] && [ "$l" -ge "$g" ] || fail "$psd: unexpected structure: $g groups, $l layers"
  # ImageMagick (the Debian one; /usr/local/bin/convert may be something else).
  frames="$(/usr/bin/identify "$psd" 2>&1 | grep -c ' PSD ' || true)"
  [ "$frames" -eq $((l + 1)) ] || fail "ImageMagick sees $frames images in $psd, expected $((l + 1))"
  /usr/bin/convert "$psd[0]" "$work/composite.png" 2>/dev/null || fail "ImageMagick cannot convert $psd"
done < <(grep '^count ' "$work/expected.txt")
diff <(sed -n 's/^record //p' "$work/expected.txt" | sort) <(/usr/bin/identify -format '%l\n' "$work/names.psd" | grep . | sort) ||
  fail "ImageMagick's names differ from the records' own"

# GIMP in batch mode, all files in one run: the top-level items and the layers
# inside groups of each, and every name in names.psd (GIMP numbers repeated ones).
loads=""
for psd in "${files[@]}"; do loads="$loads (count \"$psd\")"; done
script="(define (pv-names items)
          (for-each (lambda (item)
                      (gimp-message (string-append \"PV-NAME \" (car (gimp-item-get-name item))))
                      (if (= (car (gimp-item-is-group item)) 1)
                          (pv-names (vector->list (cadr (gimp-item-get-children item))))))
                    items))
        (define (count file)
          (let* ((img (car (gimp-file-load RUN-NONINTERACTIVE file file)))
                 (top (gimp-image-get-layers img))
                 (inner 0))
            (for-each (lambda (item)
                        (if (= (car (gimp-item-is-group item)) 1)
                            (set! inner (+ inner (car (gimp-item-get-children item))))))
                      (vector->list (cadr top)))
            (gimp-message (string-append \"PV-COUNT \" file \" \" (number->string (car top)) \" \"
                                         (number->string inner)))
            (if (string=? file \"$work/names.psd\") (pv-names (vector->list (cadr top))))))
        $loads
        (gimp-quit 0)"
gimp_out="$(timeout 300 gimp -i -b "$script" -b '(gimp-quit 1)' 2>&1 || true)"
diff <(grep '^count ' "$work/expected.txt" | cut -d' ' -f2- | sort) <(grep -o "PV-COUNT .*" <<<"$gimp_out" | cut -d' ' -f2- | sort) ||
  fail "GIMP's groups and layers differ from psd-tools': $gimp_out"
missing="$(comm -23 <(sed -n 's/^name //p' "$work/expected.txt" | sort -u) <(sed -n 's/.*PV-NAME //p' <<<"$gimp_out" | sort -u))"
[ -z "$missing" ] || fail "GIMP lacks the names: $missing"
finish
