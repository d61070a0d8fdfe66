#!/usr/bin/env bash
# labels: wayland
# A Wayland compositor we have no backend for (weston, headless, with Xwayland
# and an X client on it): `capture` and `list` stop with one line naming the
# session and what would work (exit 1), whether the environment says Wayland or
# only the X display shows it is Xwayland; the tray says the same in a message
# at start and when its "Capture all" is clicked. Nothing is ever written.
set -euo pipefail
src="${PV_SOURCE_DIR:-$(cd "$(dirname "$0")/../.." && pwd)}"
bin="${PLENAVUE:-$src/build/plenavue}"

if [ "${1:-}" != --inside ]; then
  exec env -u DBUS_SESSION_BUS_ADDRESS dbus-run-session -- bash "$0" --inside
fi

work="$(mktemp -d /tmp/plenavue-weston.XXXXXX)"
pids=()
cleanup() {
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[$i]}" 2>/dev/null || true; wait "${pids[$i]}" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
wait_for() { for _ in $(seq 150); do if "$@" >/dev/null 2>&1; then return 0; fi; sleep 0.1; done; return 1; }

mkdir -m 700 "$work/run"
mkdir -p "$work/out" "$work/config/Veltrano"
export XDG_RUNTIME_DIR="$work/run" XDG_CONFIG_HOME="$work/config" HOME="$work"
unset DISPLAY WAYLAND_DISPLAY PLENAVUE_BACKEND XDG_CURRENT_DESKTOP XDG_SESSION_DESKTOP QT_QPA_PLATFORM
printf '[General]\nshownIntro=true\nformat=0\noutput=%s\n' "$work/out" >"$work/config/Veltrano/Plenavue.conf"

socket="pv-weston-$$"
weston --backend=headless-backend.so --xwayland --socket="$socket" --idle-time=0 >"$work/weston.log" 2>&1 &
pids+=("$!")
wait_for grep -q "xserver listening on display" "$work/weston.log" || { cat "$work/weston.log" >&2; exit 1; }
display=$(sed -n 's/.*xserver listening on display \(:[0-9]*\).*/\1/p' "$work/weston.log" | head -n1)
DISPLAY="$display" xlogo >/dev/null 2>&1 &
pids+=("$!")
wait_for sh -c "DISPLAY=$display xwininfo -root -tree | grep -q xlogo" || fail "no X client on Xwayland"

remedy="log in to an X11 (Xorg) session, or to KDE Plasma, to capture its windows"
# The environment as a Wayland session sets it, and one that says nothing of Wayland.
while IFS='|' read -r what settings evidence; do
  for command in capture list; do
    args=("$command")
    [ "$command" = capture ] && args+=(--file "$work/out/shot.png")
    rc=0
    env $settings "$bin" "${args[@]}" >"$work/stdout" 2>"$work/stderr" || rc=$?
    [ "$rc" = 1 ] || fail "$what, $command: exit status $rc: $(cat "$work/stderr")"
    [ "$(wc -l <"$work/stderr")" = 1 ] || fail "$what, $command: not one line: $(cat "$work/stderr")"
    grep -qF "plenavue $command: this is a Wayland session ($evidence)" "$work/stderr" ||
      fail "$what, $command: the session is not named: $(cat "$work/stderr")"
    grep -qF "; $remedy" "$work/stderr" || fail "$what, $command: no remedy: $(cat "$work/stderr")"
  done
done <<EOF
said|WAYLAND_DISPLAY=$socket DISPLAY=$display XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=Weston|Weston, XDG_SESSION_TYPE=wayland
not said|DISPLAY=$display XDG_SESSION_TYPE=x11|an unknown desktop, the X display is Xwayland
EOF

# The tray: its message at start, and again when "Capture all" is clicked in it.
/usr/bin/python3 "$src/tests/support/session_services.py" --click "Capture all" >"$work/services.log" 2>&1 &
pids+=("$!")
wait_for grep -q "services up" "$work/services.log" || fail "the tray stand-in did not start"
WAYLAND_DISPLAY="$socket" DISPLAY="$display" XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=Weston \
  "$bin" >"$work/tray.log" 2>&1 &
pids+=("$!")
wait_for grep -q "^clicked: Capture all" "$work/services.log" || fail "no tray menu to click: $(cat "$work/tray.log")"
wait_for grep -q "^notify: Capture failed | this is a Wayland session (Weston" "$work/services.log" ||
  fail "no message for the refused capture: $(cat "$work/services.log")"
grep -q "^notify: Plenavue cannot capture | this is a Wayland session (Weston" "$work/services.log" ||
  fail "no message at start: $(cat "$work/services.log")"
grep -q "^plenavue: this is a Wayland session (Weston" "$work/tray.log" || fail "no line at start: $(cat "$work/tray.log")"

[ -z "$(ls -A "$work/out")" ] || fail "something was written: $(ls "$work/out")"
exit "$failures"
