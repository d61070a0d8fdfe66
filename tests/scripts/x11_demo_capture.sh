#!/usr/bin/env bash
# labels: x11 readers
# `make run` without a display: the demo desktop (two monitors, openbox, real
# clients) is captured into a grouped PSD that psd-tools reads back with one
# group per application, each holding that application's windows with pixels,
# each where the demo placed it; everything the demo started is stopped.
source "$(dirname "$0")/lib.sh"

env -u DISPLAY bash "$src/scripts/demo-desktop.sh" "$bin" "$work" >"$work/stdout" 2>"$work/stderr" ||
  { cat "$work/stderr" >&2; fail "the demo desktop capture failed"; finish; }
psd="$(tail -n1 "$work/stdout")"
[[ "$psd" == "$work"/*.psd && -f "$psd" ]] || fail "no PSD in $work: '$psd'"
! pgrep -f "plenavue-demo" >/dev/null || fail "demo processes left running"

/usr/bin/python3 - "$psd" <<'PY' || fail "the demo's PSD"
import sys
from psd_tools import PSDImage

psd = PSDImage.open(sys.argv[1])
assert all(g.is_group() for g in psd), [g.name for g in psd]
groups = {g.name: list(g) for g in psd}
for group, title in {"XLogo": "xlogo", "XClock": "xclock", "XEyes": "xeyes", "XTerm": "Plenavue demo"}.items():
    assert title in [l.name for l in groups.get(group, [])], (group, title, sorted(groups))
    for layer in groups[group]:
        pixels = layer.numpy()
        assert layer.kind == "pixel" and min(pixels.shape[:2]) > 20, (group, layer.name, layer.kind)
        assert pixels[..., -1].max() > 0 and pixels[..., :3].std() > 0.01, f"{layer.name!r} is empty or flat"
# Both monitors side by side at scale 1; the taller one sets the top edge, so
# document pixels are root-window pixels. xlogo's frame stands at (80, 420);
# its layer starts 24 left of and 16 above it, where the drop shadow begins.
assert (psd.width, psd.height) == (2880, 1200), (psd.width, psd.height)
xlogo = [l for l in groups["XLogo"] if l.name == "xlogo"][0]
assert abs(xlogo.left - (80 - 24)) <= 4 and abs(xlogo.top - (420 - 16)) <= 4, xlogo.bbox
PY
finish
