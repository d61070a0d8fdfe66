#!/usr/bin/env bash
# labels: readers x11
# psd-tools, ImageMagick and GIMP open grouped captures without error and see
# their layers: psd-tools decodes every layer, ImageMagick sees the composite
# plus every pixel layer (it drops groups by design), GIMP one top-level group
# per application run with the windows inside. The busy desktop, and shadowed
# windows at the fractional backing scales 1.25, 1.5, 1.75 and 2.5.
# Names: on a private X server, windows titled through every encoding a client
# may use (UTF8_STRING, STRING, xterm's COMPOUND_TEXT, escape sequences, a title past
# 127 characters) and a program named by its desktop entry in German read the
# same in `plenavue list`, `list --json`, psd-tools and GIMP (both read the
# Unicode name block); ImageMagick, which reads only the records' own names,
# sees them with "?" for every character outside ASCII.
set -euo pipefail
: "${PLENAVUE:?}" "${PV_SOURCE_DIR:?}"
work="$(mktemp -d)"
pids=()
cleanup() {
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[$i]}" 2>/dev/null || true; wait "${pids[$i]}" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
wait_for() { for _ in $(seq 100); do if "$@" >/dev/null 2>&1; then return 0; fi; sleep 0.1; done; return 1; }
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

# ---- names through X11 ----------------------------------------------------------
Xvfb -displayfd 3 -screen 0 1400x900x24 -nolisten tcp -noreset 3>"$work/display" >/dev/null 2>&1 &
pids+=("$!")
wait_for grep -q . "$work/display" || fail "Xvfb did not start"
display=":$(head -n1 "$work/display")"
for i in 1 2 4 5 6; do
  DISPLAY="$display" xlogo -name "pv-$i" -title "pv-$i" -geometry "180x120+$((i * 200 - 180))+$((i * 100))" >/dev/null 2>&1 &
  pids+=("$!")
done
# xterm titles itself in COMPOUND_TEXT (national sets where they hold the
# characters, UTF-8 segments for the rest) and sets no _NET_WM_NAME.
export PV_CT_TITLE="Ünï — ✓ 😀 日本語 Ωμέγα Кириллица end"
DISPLAY="$display" LC_ALL=C.UTF-8 xterm -name pv-3 -title "$PV_CT_TITLE" -geometry 30x5+420+300 -e sleep 600 >/dev/null 2>&1 &
pids+=("$!")
mkdir -p "$work/data/applications"
printf '[Desktop Entry]\nType=Application\nName=Logo\nName[de]=Zeichnung \xe2\x9c\x93\n' \
  >"$work/data/applications/pv-1.desktop"
# Titles set with xprop, which encodes them with Xlib as a client does; the
# expected names are written for the checks below.
DISPLAY="$display" /usr/bin/python3 - "$work/expected.json" <<'PY' || fail "titling the X windows"
import json, os, subprocess, sys, time

def xprop(*args):
    env = dict(os.environ, LC_ALL="C.UTF-8")
    return subprocess.run(["xprop", *args], env=env, check=True, capture_output=True, text=True).stdout

def window(i):
    for _ in range(100):
        out = subprocess.run(["xdotool", "search", "--classname", "^pv-%d$" % i], capture_output=True, text=True).stdout
        if out.strip():
            return out.split()[0]
        time.sleep(0.1)
    raise SystemExit("no window pv-%d" % i)

long_title = "x" * 126 + "\u65e5" * 5
cases = [  # property, xprop format, type xprop must write, text, name the tree shows
    ("_NET_WM_NAME", "8u", "UTF8_STRING", "\u00dcn\u00efc\u00f6d\u00e9 \u2014 \u65e5\u672c\u8a9e \u2713 \U0001F600", None),
    ("WM_NAME", "8s", "STRING", "Z\u00fcrich \u00a9 caf\u00e9", None),
    ("WM_NAME", None, "COMPOUND_TEXT", os.environ["PV_CT_TITLE"], None),
    ("WM_NAME", "8u", "UTF8_STRING", "\u03a9\u03bc\u03ad\u03b3\u03b1 \u2014 \u4e2d\u6587", None),
    ("_NET_WM_NAME", "8u", "UTF8_STRING", "\x1b]0;owned\x07\x1b[31mRed\x1b[0m\x7f tail", "]0;owned[31mRed[0m tail"),
    ("_NET_WM_NAME", "8u", "UTF8_STRING", long_title, long_title[:127]),
]
names = []
for i, (prop, fmt, kind, text, shown) in enumerate(cases, 1):
    w = window(i)
    # xprop writes a STRING's bytes as given: Latin-1, as such a client's are.
    if fmt:
        xprop("-id", w, "-f", prop, fmt, "-set", prop, text.encode("latin-1") if fmt == "8s" else text)
    written = xprop("-id", w, prop)
    if "(%s)" % kind not in written:
        raise SystemExit("pv-%d: xprop wrote %s" % (i, written.strip()))
    names.append(shown or text)
json.dump({"titles": names, "group": "Zeichnung \u2713"}, open(sys.argv[1], "w"))
PY
x11psd="$work/x11.psd"
names_env=(env DISPLAY="$display" LANG=de_DE.UTF-8 XDG_DATA_HOME="$work/data" XDG_DATA_DIRS="$work/none")
"${names_env[@]}" "$PLENAVUE" list >"$work/list.txt" 2>"$work/list.err" || fail "list: $(cat "$work/list.err")"
"${names_env[@]}" "$PLENAVUE" list --json >"$work/list.json" 2>>"$work/list.err" || fail "list --json"
"${names_env[@]}" "$PLENAVUE" capture -q --format grouped --no-shadow --file "$x11psd" >/dev/null 2>>"$work/list.err" ||
  fail "capture on X: $(cat "$work/list.err")"
/usr/bin/identify -format '%l\n' "$x11psd" >"$work/labels.txt" 2>>"$work/im.err" || fail "ImageMagick cannot read $x11psd"
/usr/bin/python3 - "$work" <<'PY' || fail "names through X11"
import json, re, sys
from psd_tools import PSDImage
work = sys.argv[1]
expected = json.load(open(work + "/expected.json"))
titles, group = expected["titles"], expected["group"]
ascii = lambda s: "".join(c if ord(c) < 128 else "?" for c in s)[:255]
whole = lambda s: s.encode("utf-16-be", "surrogatepass").decode("utf-16-be")

text = open(work + "/list.txt", "rb").read()
assert not re.findall(rb"[\x00-\x09\x0b-\x1f\x7f]|\xc2[\x80-\x9f]", text), "control characters reach the terminal"
lines = text.decode("utf-8").splitlines()
for t in titles + [group]:
    assert any(l.strip().startswith(t + " (") for l in lines), "list: no line for %r" % t

root = json.load(open(work + "/list.json"))
apps = [a for s in root["children"] for a in s["children"]]
assert sorted(w["name"] for a in apps for w in a["children"]) == sorted(titles), [w["name"] for a in apps for w in a["children"]]
named = [a for a in apps if a["name"] == group]
assert len(named) == 1 and named[0]["role"] == "XLogo" and named[0]["children"][0]["name"] == titles[0], apps

psd = PSDImage.open(work + "/x11.psd")
layers = [l for l in psd.descendants() if not l.is_group()]
assert sorted(whole(l.name) for l in layers) == sorted(titles), [whole(l.name) for l in layers]
assert sorted(l._record.name for l in layers) == sorted(ascii(t) for t in titles)
groups = [whole(g.name) for g in psd if g.is_group()]
assert group in groups, groups

labels = [l for l in open(work + "/labels.txt", encoding="utf-8").read().splitlines() if l]
assert sorted(labels) == sorted(ascii(t) for t in titles), labels
print("names through X11: list, JSON, psd-tools and ImageMagick as expected")
PY

# GIMP in batch mode, all files in one run: the top-level items and the layers
# inside groups of each, and every name of the X capture.
loads=""
for psd in "${files[@]}"; do loads="$loads (count \"$psd\" \"$(basename "$psd")\")"; done
script="(define (pv-names items)
          (for-each (lambda (item)
                      (gimp-message (string-append \"PV-NAME \" (car (gimp-item-get-name item))))
                      (if (= (car (gimp-item-is-group item)) 1)
                          (pv-names (vector->list (cadr (gimp-item-get-children item))))))
                    items))
        (define (count file name)
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
        (pv-names (vector->list (cadr (gimp-image-get-layers
                                        (car (gimp-file-load RUN-NONINTERACTIVE \"$x11psd\" \"x11.psd\"))))))
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

sed -n 's/.*PV-NAME //p' <<<"$gimp_out" >"$work/gimp-names.txt"
/usr/bin/python3 - "$work" <<'PY' || fail "GIMP's names: $(cat "$work/gimp-names.txt")"
import json, sys
work = sys.argv[1]
expected = json.load(open(work + "/expected.json"))
names = open(work + "/gimp-names.txt", encoding="utf-8").read().splitlines()
missing = [n for n in expected["titles"] + [expected["group"]] if n not in names]
assert not missing, "GIMP lacks %r" % missing
print("GIMP reads every Unicode name")
PY

exit "$failures"
