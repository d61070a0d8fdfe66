#!/usr/bin/env bash
# Remakes the README's screenshots on a private X server: openbox, a tray,
# a few real clients, and Plenavue driven with xdotool as a person would.
#
#   scripts/screenshots.sh [PLENAVUE_BINARY]   -> docs/screenshots/*.png
here="$(cd "$(dirname "$0")/.." && pwd)"
out="$here/docs/screenshots"
source "$here/tests/scripts/lib.sh"
bin="$(realpath "${1:-$here/build/plenavue}")"
shot() { sleep 0.8; /usr/bin/import -window root "$out/$1.png"; echo "wrote $out/$1.png"; }

start_desktop 1280x800
xsetroot -solid "#3a6ea5"
start_tray --SetDockType true
start xclock -geometry 180x180+60+80
start xlogo -geometry 220x160+300+120
start xterm -geometry 64x14+120+360 -title "notes" -e sh -c 'echo "A layered picture of the whole desktop"; exec sleep 600'
wait_for xdotool search --onlyvisible --class XTerm

# A settled person's settings: an output folder, the intro seen.
mkdir "$work/Pictures"
settings shownIntro=true format=0 "output=$work/Pictures"
"$bin" >"$work/plenavue.log" 2>&1 &
pids+=("$!")
sleep 3

# The main window, as Shift+Super+6 brings it, with one window row chosen.
xdotool key shift+super+6
wait_for xdotool search --onlyvisible --name '^Plenavue$'
main="$(xdotool search --onlyvisible --name '^Plenavue$' | head -n1)"
xdotool windowmove "$main" 260 60 windowsize "$main" 1000 640
sleep 1
eval "$(xdotool getwindowgeometry --shell "$main")"
xdotool mousemove $((X + 90)) $((Y + 92)) click 1   # the first window row
shot main-window

# Preferences and About, from the tray menu.
xdotool key Escape
open_from_tray() {  # the tray icon's menu, then the item N steps down
  local icon
  icon="$(xdotool search --onlyvisible --class trayer | head -n1)"
  eval "$(xdotool getwindowgeometry --shell "$icon")"
  xdotool mousemove $((X + WIDTH - 12)) $((Y + 12)) click 1
  sleep 0.5
  xdotool key --repeat "$1" Down key Return
}
open_from_tray 3
wait_for xdotool search --onlyvisible --name 'Preferences'
shot preferences
xdotool key Escape
open_from_tray 4
wait_for xdotool search --onlyvisible --name 'About Plenavue'
shot about
