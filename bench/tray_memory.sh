#!/usr/bin/env bash
# The tray application's memory over many hot-key captures, on a private X
# server with a window manager, a system tray and a few clients: the resident
# set size (VmRSS) after each capture, then a summary. Prints figures only.
#
#   bash bench/tray_memory.sh [PLENAVUE] [CAPTURES]    build/plenavue and 100 by default
cd "$(dirname "$0")/.."
plenavue="$(realpath "${1:-build/plenavue}")"
captures="${2:-100}"
source tests/scripts/lib.sh
start_desktop 1600x1000
start_tray
start xclock -geometry 300x300+60+80
start xlogo -geometry 400x300+420+120
start xeyes -geometry 300x200+900+400
start xterm -geometry 90x30+200+500
wait_for xdotool search --onlyvisible --class XTerm

mkdir "$work/out"
settings shownIntro=true format=0 shadow=true "output=$work/out"
"$plenavue" >"$work/plenavue.log" 2>&1 &
app=$!
pids+=("$app")

rss_kb() { awk '/^VmRSS:/ { print $2 }' "/proc/$app/status"; }

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
