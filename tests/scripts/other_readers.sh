#!/usr/bin/env bash
# labels: readers
# ImageMagick and GIMP open a grouped capture without error and see its layers:
# ImageMagick the composite plus every pixel layer (it drops groups by design),
# GIMP one top-level group per application run with the windows inside.
set -euo pipefail
: "${PLENAVUE:?}" "${PV_SOURCE_DIR:?}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export HOME="$work" XDG_CONFIG_HOME="$work/config"
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

psd="$work/busy.psd"
"$PLENAVUE" capture -q --desktop "$PV_SOURCE_DIR/fixtures/busy-desktop.json" --format grouped --shadow --file "$psd" >/dev/null
# What the file should hold, read with psd-tools.
read -r groups layers < <(/usr/bin/python3 - "$psd" <<'PY'
import sys
from psd_tools import PSDImage
psd = PSDImage.open(sys.argv[1])
print(len(list(psd)), sum(1 for l in psd.descendants() if not l.is_group()))
PY
)
echo "psd-tools: $groups groups, $layers pixel layers"
[ "$groups" -gt 1 ] && [ "$layers" -gt "$groups" ] || fail "unexpected structure: $groups groups, $layers layers"

# ImageMagick (the Debian one; /usr/local/bin/convert may be something else).
if identify_out="$(/usr/bin/identify "$psd" 2>"$work/im.err")"; then
  frames="$(grep -c ' PSD ' <<<"$identify_out")"
  [ "$frames" -eq $((layers + 1)) ] || fail "ImageMagick sees $frames images, expected $((layers + 1))"
  /usr/bin/convert "$psd[0]" "$work/composite.png" 2>>"$work/im.err" || fail "ImageMagick cannot convert the composite"
  [ -s "$work/composite.png" ] || fail "ImageMagick wrote no composite"
else
  fail "ImageMagick cannot read the file: $(cat "$work/im.err")"
fi

# GIMP in batch mode: count the top-level items and the layers inside groups.
script="(let* ((img (car (gimp-file-load RUN-NONINTERACTIVE \"$psd\" \"busy.psd\")))
               (top (gimp-image-get-layers img))
               (items (vector->list (cadr top)))
               (inner 0))
          (for-each (lambda (item)
                      (if (= (car (gimp-item-is-group item)) 1)
                          (set! inner (+ inner (car (gimp-item-get-children item))))))
                    items)
          (gimp-message (string-append \"PV-COUNT \" (number->string (car top)) \" \" (number->string inner)))
          (gimp-quit 0))"
gimp_out="$(timeout 120 gimp -i -b "$script" -b '(gimp-quit 1)' 2>&1 || true)"
counts="$(grep -o 'PV-COUNT [0-9]* [0-9]*' <<<"$gimp_out" || true)"
if [ -z "$counts" ]; then
  fail "GIMP did not load the file: $gimp_out"
else
  read -r _ gimp_top gimp_inner <<<"$counts"
  echo "GIMP: $gimp_top top-level groups, $gimp_inner layers inside them"
  [ "$gimp_top" -eq "$groups" ] || fail "GIMP sees $gimp_top top-level items, expected $groups"
  [ "$gimp_inner" -eq "$layers" ] || fail "GIMP sees $gimp_inner layers in groups, expected $layers"
fi

exit "$failures"
