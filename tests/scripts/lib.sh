# Sourced by every script test (and the scripts that drive the tray on a
# private desktop): the program and the source tree, a scratch HOME removed at
# exit with every program started here, failures counted, condition waits, a
# private X desktop with a tray, and runs of the program that keep what it
# printed. Set on_exit to a command to run before the clean-up.
set -euo pipefail
src="${PV_SOURCE_DIR:-$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)}"
bin="${PLENAVUE:-$src/build/plenavue}"
tests="${PV_BUILD_DIR:-$src/build}/tests"
work="$(mktemp -d /tmp/plenavue-test.XXXXXX)"
pids=()
on_exit=""
cleanup() {
  $on_exit
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[$i]}" 2>/dev/null || true; wait "${pids[$i]}" 2>/dev/null || true; done
  chmod -R u+w "$work" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
# Inside a KDE Plasma test session (tests/support/kwin-session.sh) its own folders stay.
[ -n "${PV_SESSION_DIR:-}" ] || export HOME="$work" XDG_CONFIG_HOME="$work/config"
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
finish() { [ "$failures" -ne 0 ] || echo "$(basename "$0" .sh): all as expected"; exit "$failures"; }
start() { "$@" >/dev/null 2>&1 & pids+=("$!"); }
wait_for() { for _ in $(seq 150); do if "$@" >/dev/null 2>&1; then return 0; fi; sleep 0.1; done; return 1; }
lines() { grep -c . <<<"$1" || true; }
# run ARGS...: the program's exit status, standard output and error in status, out, err.
run() {
  status=0
  "$bin" "$@" >"$work/out" 2>"$work/err" || status=$?
  out="$(cat "$work/out")" err="$(cat "$work/err")"
}
# settings KEY=VALUE...: the stored settings the program starts with.
settings() {
  mkdir -p "$XDG_CONFIG_HOME/Veltrano"
  { echo '[General]'; printf '%s\n' "$@"; } >"$XDG_CONFIG_HOME/Veltrano/Plenavue.conf"
}
# start_desktop WxH: a private X server for DISPLAY (never the developer's) with openbox.
start_desktop() {
  Xvfb -displayfd 3 -screen 0 "$1x24" -nolisten tcp -noreset +extension Composite 3>"$work/display" >/dev/null 2>&1 &
  pids+=("$!")
  wait_for grep -q . "$work/display" || { echo "Xvfb did not start" >&2; exit 1; }
  export DISPLAY=":$(head -n1 "$work/display")"
  unset XAUTHORITY WAYLAND_DISPLAY
  start openbox --sm-disable
  wait_for sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"' || { echo "openbox did not start" >&2; exit 1; }
}
# start_tray [ARGS...]: a system tray at the top right of that desktop.
start_tray() {
  start trayer --edge top --align right --widthtype request --height 24 "$@"
  wait_for xdotool search --onlyvisible --class trayer
}
