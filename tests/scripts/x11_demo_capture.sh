#!/usr/bin/env bash
# labels: x11 readers
# `make run` without a display: the demo desktop (two monitors, openbox, real
# clients) is captured into a grouped PSD that psd-tools reads back with one
# group per application, each holding that application's windows with pixels,
# each where the demo placed it.
source "$(dirname "$0")/lib.sh"
out="$work"

env -u DISPLAY bash "$src/scripts/demo-desktop.sh" "$bin" "$out" >"$out/stdout" 2>"$out/stderr" || {
  cat "$out/stderr" >&2
  echo "FAIL: the demo desktop capture failed" >&2
  exit 1
}
psd="$(tail -n1 "$out/stdout")"
[ -f "$psd" ] || { echo "FAIL: no PSD at '$psd'" >&2; exit 1; }
case "$psd" in "$out"/*.psd) ;; *) echo "FAIL: '$psd' is not a PSD in $out" >&2; exit 1 ;; esac
# Everything the demo started has been stopped.
if pgrep -f "plenavue-demo" >/dev/null; then echo "FAIL: demo processes left running" >&2; exit 1; fi

/usr/bin/python3 - "$psd" <<'PY'
import sys
from psd_tools import PSDImage

psd = PSDImage.open(sys.argv[1])
groups = {}
for layer in psd:
    assert layer.is_group(), f"top-level layer {layer.name!r} is not in a group"
    groups.setdefault(layer.name, []).extend(layer)

expected = {"XLogo": "xlogo", "XClock": "xclock", "XEyes": "xeyes", "XTerm": "Plenavue demo"}
for group, title in expected.items():
    assert group in groups, f"no group {group!r} in {sorted(groups)}"
    names = [l.name for l in groups[group]]
    assert title in names, f"group {group!r} holds {names}, not {title!r}"
    for layer in groups[group]:
        assert layer.kind == "pixel", f"{layer.name!r} in {group!r} is a {layer.kind}"
        pixels = layer.numpy()
        assert pixels is not None and pixels.shape[0] > 20 and pixels.shape[1] > 20, f"{layer.name!r} is empty"
        assert pixels[..., -1].max() > 0, f"{layer.name!r} is fully transparent"
        assert pixels[..., :3].std() > 0.01, f"{layer.name!r} is one flat colour"
# Both monitors side by side at scale 1; the taller one sets the top edge, so
# document pixels are root-window pixels. xlogo's frame stands at (80, 420);
# its layer starts 24 left of and 16 above it, where the drop shadow begins.
assert (psd.width, psd.height) == (2880, 1200), (psd.width, psd.height)
xlogo = [l for l in groups["XLogo"] if l.name == "xlogo"][0]
assert abs(xlogo.left - (80 - 24)) <= 4 and abs(xlogo.top - (420 - 16)) <= 4, xlogo.bbox
print("ok:", psd.width, "x", psd.height, {g: len(ls) for g, ls in groups.items()})
PY
