#!/usr/bin/env bash
# A private desktop to capture when there is no display: Xvfb with two RandR
# monitors of different size side by side, openbox, and a few real X clients
# at known places. Captures everything into a grouped PSD, prints its path and
# stops everything it started.
#
#   scripts/demo-desktop.sh [PLENAVUE_BINARY] [OUTPUT_FOLDER]
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
bin="${1:-$here/build/plenavue}"
out="${2:-}"

# Main monitor 1600x900 on the left, its bottom level with the taller
# 1280x1200 monitor on its right.
readonly root_size=2880x1200
readonly main_monitor="1600/423x900/238+0+300"
readonly side_monitor="1280/338x1200/317+1600+0"

pids=()
workdir="$(mktemp -d /tmp/plenavue-demo.XXXXXX)"
cleanup() {
  local pid
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
    pid="${pids[$i]}"
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$workdir"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

start() {  # start PROGRAM ARGS...: runs it on the private display
  "$@" >/dev/null 2>&1 &
  pids+=("$!")
}

wait_for() {  # wait_for DESCRIPTION COMMAND...: polls for up to 10 s
  local what="$1"; shift
  for _ in $(seq 100); do
    if "$@" >/dev/null 2>&1; then return 0; fi
    sleep 0.1
  done
  echo "demo-desktop: $what did not come up" >&2
  return 1
}

for tool in Xvfb openbox xrandr xsetroot xprop xdotool xlogo xclock xeyes xterm; do
  command -v "$tool" >/dev/null || { echo "demo-desktop: $tool is missing (run scripts/install-deps.sh)" >&2; exit 1; }
done
[ -x "$bin" ] || { echo "demo-desktop: no plenavue binary at $bin" >&2; exit 1; }

# Xvfb picks a free display number itself and writes it to the given fd.
Xvfb -displayfd 3 -screen 0 "${root_size}x24" -nolisten tcp -noreset +extension Composite +extension RANDR \
  3>"$workdir/display" >/dev/null 2>&1 &
pids+=("$!")
wait_for "Xvfb" grep -q . "$workdir/display"
export DISPLAY=":$(head -n1 "$workdir/display")"
unset XAUTHORITY

xrandr --setmonitor SIDE "$side_monitor" none >/dev/null
xrandr --setmonitor MAIN "$main_monitor" screen >/dev/null
xrandr --output screen --primary

xsetroot -solid "#3a6ea5"
start openbox --sm-disable
wait_for "openbox" sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"'

start xlogo -geometry 300x240+80+420
start xclock -geometry 220x220+1480+420          # across both monitors
start xeyes -geometry 240x160+1900+200
start xterm -geometry 70x16+300+620 -title "Plenavue demo" -e sh -c 'echo "Hello from the demo desktop"; exec sleep 600'
for class in XLogo XClock XEyes XTerm; do
  wait_for "$class" xdotool search --onlyvisible --class "$class"
done
sleep 0.5  # let the clients draw their first frame

if [ -z "$out" ]; then
  out="$(mktemp -d /tmp/plenavue-capture.XXXXXX)"
fi
mkdir -p "$out"
echo "demo-desktop: capturing the private display $DISPLAY into $out" >&2
"$bin" capture --format grouped --output "$out"
