#!/usr/bin/env bash
# Remakes the README's screenshots on a private X server: openbox, a tray,
# a few real clients, and Plenavue driven with xdotool as a person would.
#
#   scripts/screenshots.sh [PLENAVUE_BINARY]   -> docs/screenshots/*.png
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
bin="${1:-$here/build/plenavue}"
out="$here/docs/screenshots"
work="$(mktemp -d /tmp/plenavue-shots.XXXXXX)"
pids=()
cleanup() {
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[$i]}" 2>/dev/null || true; wait "${pids[$i]}" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
start() { "$@" >/dev/null 2>&1 & pids+=("$!"); }
wait_for() { for _ in $(seq 100); do if "$@" >/dev/null 2>&1; then return 0; fi; sleep 0.1; done; return 1; }
shot() { sleep 0.8; /usr/bin/import -window root "$out/$1.png"; echo "wrote $out/$1.png"; }

Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset +extension Composite 3>"$work/display" >/dev/null 2>&1 &
pids+=("$!")
wait_for grep -q . "$work/display"
export DISPLAY=":$(head -n1 "$work/display")"
unset XAUTHORITY

xsetroot -solid "#3a6ea5"
start openbox --sm-disable
wait_for sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"'
start trayer --edge top --align right --widthtype request --height 24 --SetDockType true
start xclock -geometry 180x180+60+80
start xlogo -geometry 220x160+300+120
start xterm -geometry 64x14+120+360 -title "notes" -e sh -c 'echo "A layered picture of the whole desktop"; exec sleep 600'
wait_for xdotool search --onlyvisible --class XTerm

# A settled person's settings: an output folder, the intro seen.
mkdir -p "$work/config/Veltrano" "$work/Pictures"
printf '[General]\nshownIntro=true\nformat=0\noutput=%s\n' "$work/Pictures" >"$work/config/Veltrano/Plenavue.conf"
HOME="$work" XDG_CONFIG_HOME="$work/config" "$bin" >"$work/plenavue.log" 2>&1 &
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
