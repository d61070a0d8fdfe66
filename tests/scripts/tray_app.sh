#!/usr/bin/env bash
# labels: gui x11
# The desktop application on a private X server, driven as a person would:
# the hot key captures everything but our own windows into the output folder,
# SIGTERM quits through the same path as Quit and stores the settings, and a
# desktop without a tray gets the main window and one line saying why.
source "$(dirname "$0")/lib.sh"
start_desktop 1280x800
start xclock -geometry 200x200+60+80
start xlogo -geometry 200x160+400+120
wait_for xdotool search --onlyvisible --class XLogo

conf="$XDG_CONFIG_HOME/Veltrano/Plenavue.conf"

# No tray on this desktop yet: the main window opens and stderr says why.
mkdir "$work/out"
settings shownIntro=true format=0 "output=$work/out"
"$bin" >"$work/first.log" 2>&1 &
app=$!
wait_for xdotool search --onlyvisible --name '^Plenavue$' || fail "no main window without a tray"
grep -q "no system tray" "$work/first.log" || fail "no line about the missing tray: $(cat "$work/first.log")"
kill -TERM "$app"
wait "$app" || fail "SIGTERM: exit status $?"

# With a tray: the hot key writes a grouped PSD with the clients and none of ours.
start_tray
settings shownIntro=true format=0 shadow=false "output=$work/out"
"$bin" >"$work/second.log" 2>&1 &
app=$!
# The main window on screen, so that leaving it out is tested; the key is
# pressed until the program has started and grabbed it.
wait_for sh -c 'xdotool key shift+super+6; sleep 0.2; xdotool search --onlyvisible --name "^Plenavue\$"' ||
  fail "Shift+Super+6 showed no main window"
xdotool key shift+super+5
wait_for sh -c "ls '$work/out'/*.psd" || fail "Shift+Super+5 wrote nothing: $(cat "$work/second.log")"
psd="$(ls "$work"/out/*.psd | head -n1)"
/usr/bin/python3 - "$psd" <<'PY' || fail "the captured PSD"
import sys
from psd_tools import PSDImage
psd = PSDImage.open(sys.argv[1])
groups = [g.name for g in psd]
assert "XClock" in groups and "XLogo" in groups, groups
assert not any(g.lower().startswith("plenavue") for g in groups), groups
for g in psd:
    for layer in g:
        assert layer.kind == "pixel" and layer.width > 20, (g.name, layer.name, layer.size)
print("hot key capture:", groups)
PY

# Quitting by signal stores the settings: keys the file did not hold appear.
kill -TERM "$app"
wait "$app" || fail "SIGTERM: exit status $?"
grep -q '^ignore=false' "$conf" || fail "settings not stored at quit: $(cat "$conf")"
grep -q '^shadow=false' "$conf" || fail "the shadow setting changed: $(cat "$conf")"
grep -q '^shownIntro=true' "$conf" || fail "shownIntro not stored: $(cat "$conf")"
grep -q '^outputBookmark=' "$conf" || fail "output folder bookmark not stored: $(cat "$conf")"

finish
