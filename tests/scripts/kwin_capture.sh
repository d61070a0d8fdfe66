#!/usr/bin/env bash
# labels: wayland readers
# A headless KDE Plasma session (KWin with Xwayland, permission checks on, our
# desktop entry installed as the install writes it) with Wayland and X clients:
# `plenavue capture` and then the tray's Shift+Meta+5 (real key presses through
# KWin) each write a grouped PSD that psd-tools reads with every window once, at
# its frame, in KWin's stacking order, with whole pixels, the layers agreeing
# with the merged image, and none of our own windows (the tray's main window is
# on screen for the second one).
if [ "${1:-}" != --inside ]; then
  src="${PV_SOURCE_DIR:-$(cd "$(dirname "$0")/../.." && pwd)}"
  exec bash "$src/tests/support/kwin-session.sh" --permission-checks --install-entry "${PLENAVUE:-$src/build/plenavue}" \
    --kwin-env KWIN_WAYLAND_NO_PERMISSION_CHECKS=1 --kwin-env QT_LOGGING_RULES=kwin_scripting.debug=true \
    -- bash "$0" --inside
fi
source "$(dirname "$0")/lib.sh"
out="$work"
script() { bash "$src/tests/support/kwin-script.sh" "$1"; }

# KWin's own account, from a script of ours printing into its log: every
# window, bottom of the stack first.
truth() {
  local mark="PVTRUTH-$RANDOM"
  script "var l = workspace.clientList(); l.sort(function (a, b) { return a.stackingOrder - b.stackingOrder; });
    for (var i = 0; i < l.length; ++i) { var w = l[i];
      print('$mark ' + JSON.stringify({caption: String(w.caption), frame: [w.x, w.y, w.width, w.height],
        shown: !w.minimized && (w.onAllDesktops || w.desktop === workspace.currentDesktop)})); }
    print('$mark END');"
  wait_for grep -q "$mark END" "$PV_SESSION_DIR/kwin.log"
  grep "js: $mark {" "$PV_SESSION_DIR/kwin.log" | sed "s/^js: $mark //" >"$1"
}
place() { script "var l = workspace.clientList(); for (var i = 0; i < l.length; ++i) if (l[i].caption == '$1')
  { l[i].frameGeometry = {x: $2, y: $3, width: l[i].width, height: l[i].height}; workspace.activeClient = l[i]; }"; }

QT_QPA_PLATFORM=wayland start "$tests/pv-testwin" --title Red --app-id pv-red --color '#ff0000' --border '#0000ff'
QT_QPA_PLATFORM=wayland start "$tests/pv-testwin" --title Green --app-id pv-green --color '#00ff00' \
  --border '#ffff00' --size 400x300
QT_QPA_PLATFORM=xcb start "$tests/pv-testwin" --title "Blue X" --app-id pv-blue --color '#0000ff' --border '#ffffff'
start xlogo
start weston-terminal --shell=/bin/cat
titles='Red|Green|Blue X|xlogo|Wayland Terminal'
wait_for sh -c "'$bin' list | grep -cE '^      ($titles) \(' | grep -qx 5" || fail "the clients did not come up: $("$bin" list)"
# Overlapping, in a known order: Red under Green, the X client over both.
place Red 100 100
place Green 250 180
place "Blue X" 500 250
place xlogo 900 450

check() {  # check PSD TRUTH frames|shadows [ABSENT]: psd-tools against KWin's account
  /usr/bin/python3 - "$@" <<'PY'
import json, sys
import numpy as np
from psd_tools import PSDImage

psd_path, truth_path, mode = sys.argv[1:4]
absent = sys.argv[4] if len(sys.argv) > 4 else None
truth = [json.loads(line) for line in open(truth_path)]
shown = [w for w in reversed(truth) if w["shown"] and w["caption"] != absent]  # front to back
psd = PSDImage.open(psd_path)
layers = []
for group in psd:
    assert group.is_group(), f"{group.name!r} is not in a group"
    layers.extend(group)
layers.reverse()  # psd-tools lists the bottom first
names = [l.name for l in layers]
if absent:
    assert absent not in names and all(absent.lower() not in g.name.lower() for g in psd), names
# Every window once, in KWin's stacking order, each at its frame (without
# shadows), or its frame inside the layer with KWin's shadow around it.
assert names == [w["caption"] for w in shown], (names, [w["caption"] for w in shown])
frames = {}
for layer, w in zip(layers, shown):
    x, y, width, height = w["frame"]
    left, top, right, bottom = layer.bbox
    if mode == "frames":
        assert (left, top, right, bottom) == (x, y, x + width, y + height), (layer.name, layer.bbox, w["frame"])
    else:
        assert left < x and top < y and right > x + width and bottom > y + height, (layer.name, layer.bbox, w)
    frames[layer.name] = layer.numpy()[y - top:y - top + height, x - left:x - left + width]
# Whole pixels: each test window's fill and border, covered or not (the
# client area starts below a 37-point title bar).
for name, fill, border in [("Red", [255, 0, 0], [0, 0, 255]), ("Green", [0, 255, 0], [255, 255, 0]),
                           ("Blue X", [0, 0, 255], [255, 255, 255])]:
    client = (frames[name][37:, :, :3] * 255).round()
    found = (np.unique(client[25:-25, 25:-25].reshape(-1, 3), axis=0).tolist(),
             np.unique(client[3:17, 25:-25].reshape(-1, 3), axis=0).tolist())
    assert found == ([fill], [border]), (name, found)
# With KWin's shadows, the layers put together give the merged image KWin
# drew, wherever they cover it (but for about half a percent: the 1-pixel
# edges of the decorations, which KWin blends on screen).
if mode == "shadows":
    merged = psd.numpy()[..., :3]
    again = np.asarray(psd.composite(force=True).convert("RGBA"), dtype=np.float32) / 255
    covered = again[..., 3] > 0.999
    same = np.all(np.abs(again[..., :3] - merged) < 3 / 255, axis=2)
    agree = same[covered].mean()
    assert covered.sum() > 300000 and agree > 0.99, (covered.sum(), agree)
    print(f"{psd_path}: merged image agrees on {agree:.4f} of {covered.sum()} pixels")
print(f"{psd_path}: {len(layers)} layers in stacking order")
PY
}

# The command line, without shadows and with KWin's.
truth "$out/truth-cli.json"
psd="$("$bin" capture --file "$out/cli.psd" --format grouped --no-shadow -q)" || fail "plenavue capture failed"
[ "$psd" = "$out/cli.psd" ] || fail "capture printed '$psd'"
check "$out/cli.psd" "$out/truth-cli.json" frames || fail "the command line's PSD"
"$bin" capture --file "$out/shadows.psd" --format grouped --shadow -q >/dev/null || fail "plenavue capture --shadow failed"
check "$out/shadows.psd" "$out/truth-cli.json" shadows || fail "the command line's PSD with shadows"

# The tray: a stand-in for the shell's tray and notifications, settings with
# the output folder, the main window shown by Shift+Meta+6, then Shift+Meta+5.
/usr/bin/python3 "$src/tests/support/session_services.py" >"$out/services.log" 2>&1 &
pids+=("$!")
wait_for grep -q "services up" "$out/services.log" || fail "the tray stand-in did not start"
mkdir "$out/tray"
settings shownIntro=true format=0 shadow=false "output=$out/tray"
"$bin" >"$out/tray.log" 2>&1 &
app=$!
wait_for grep -q "^item: " "$out/services.log" || fail "no tray item: $(cat "$out/tray.log")"
# The key is pressed until the tray has its shortcuts and the window is up.
for _ in $(seq 50); do
  "$tests/pv-fake-keys" leftshift+leftmeta+6
  truth "$out/truth-tray.json"
  if grep -q '"caption":"Plenavue",.*"shown":true' "$out/truth-tray.json"; then break; fi
done
grep -q '"caption":"Plenavue",.*"shown":true' "$out/truth-tray.json" ||
  fail "Shift+Meta+6 showed no main window: $(cat "$out/tray.log")"
"$tests/pv-fake-keys" leftshift+leftmeta+5 || fail "no key presses"
wait_for sh -c "ls '$out/tray/'*.psd" || fail "Shift+Meta+5 wrote nothing: $(cat "$out/tray.log")"
check "$(ls "$out"/tray/*.psd | head -n1)" "$out/truth-tray.json" frames Plenavue || fail "the tray's PSD"
kill -TERM "$app" && wait "$app" || fail "the tray did not quit on SIGTERM: $(tail -n 20 "$out/tray.log")"
finish
