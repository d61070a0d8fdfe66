#!/usr/bin/env bash
# The tray application's memory over many hot-key captures, on a private X
# server with a window manager, a system tray and a few clients: the resident
# set size (VmRSS) after each capture, then a summary. Prints figures only.
#
#   bash bench/tray_memory.sh [PLENAVUE] [CAPTURES]    build/plenavue and 100 by default
set -euo pipefail
cd "$(dirname "$0")/.."
plenavue="$(realpath "${1:-build/plenavue}")"
captures="${2:-100}"
work="$(mktemp -d /tmp/plenavue-memory.XXXXXX)"
pids=()
cleanup() {
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[$i]}" 2>/dev/null || true; wait "${pids[$i]}" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
start() { "$@" >/dev/null 2>&1 & pids+=("$!"); }
wait_for() { for _ in $(seq 300); do if "$@" >/dev/null 2>&1; then return 0; fi; sleep 0.1; done; return 1; }

Xvfb -displayfd 3 -screen 0 1600x1000x24 -nolisten tcp -noreset +extension Composite 3>"$work/display" >/dev/null 2>&1 &
pids+=("$!")
wait_for grep -q . "$work/display"
export DISPLAY=":$(head -n1 "$work/display")"
unset XAUTHORITY WAYLAND_DISPLAY
start openbox --sm-disable
wait_for sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"'
start trayer --edge top --align right --widthtype request --height 24
start xclock -geometry 300x300+60+80
start xlogo -geometry 400x300+420+120
start xeyes -geometry 300x200+900+400
start xterm -geometry 90x30+200+500
wait_for xdotool search --onlyvisible --class XTerm

export HOME="$work" XDG_CONFIG_HOME="$work/config"
mkdir -p "$work/config/Veltrano" "$work/out"
printf '[General]\nshownIntro=true\nformat=0\nshadow=true\noutput=%s\n' "$work/out" >"$work/config/Veltrano/Plenavue.conf"
"$plenavue" >"$work/plenavue.log" 2>&1 &
app=$!
pids+=("$app")

rss_kb() { awk '/^VmRSS:/ { print $2 }' "/proc/$app/status"; }
written() { find "$work/out" -name '*.psd' | wc -l; }

# The first press that writes a file shows the hot key is grabbed.
wait_for sh -c "xdotool key shift+super+5; sleep 0.5; ls '$work/out'/*.psd" ||
  { echo "no capture from the hot key: $(cat "$work/plenavue.log")" >&2; exit 1; }
sleep 1
rm -f "$work"/out/*.psd
echo "plenavue $(rss_kb) kB resident after start and one capture"

figures=()
for i in $(seq "$captures"); do
  xdotool key shift+super+5
  wait_for sh -c "[ \$(find '$work/out' -name '*.psd' | wc -l) -ge 1 ]" || { echo "capture $i wrote nothing" >&2; exit 1; }
  sleep 0.3  # the run ends after the file is in place
  rm -f "$work"/out/*.psd
  kb="$(rss_kb)"
  figures+=("$kb")
  echo "capture $i: $((kb / 1024)) MB resident"
done

printf '%s\n' "${figures[@]}" | awk -v n="$captures" '
  { v[NR] = $1; if (NR == 1 || $1 < lo) lo = $1; if ($1 > hi) hi = $1 }
  END {
    tenth = n >= 10 ? 10 : 1
    printf "summary: after capture 1: %.1f MB, %d: %.1f MB, %d: %.1f MB; lowest %.1f MB, highest %.1f MB\n",
           v[1] / 1024, tenth, v[tenth] / 1024, n, v[n] / 1024, lo / 1024, hi / 1024
    if (n > tenth) printf "growth from capture %d to %d: %.1f MB in all, %.3f MB a capture\n",
                          tenth, n, (v[n] - v[tenth]) / 1024, (v[n] - v[tenth]) / 1024 / (n - tenth)
  }'
