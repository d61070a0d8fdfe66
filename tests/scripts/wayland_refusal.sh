#!/usr/bin/env bash
# labels: wayland
# A Wayland compositor we have no backend for (weston, headless, with Xwayland
# and an X client on it): `capture` and `list` stop with one line naming the
# session and what would work (exit 1), whether the environment says Wayland or
# only the X display shows it is Xwayland; the tray says the same in a message
# at start and when its "Capture all" is clicked. Nothing is ever written.
if [ "${1:-}" != --inside ]; then
  exec env -u DBUS_SESSION_BUS_ADDRESS dbus-run-session -- bash "$0" --inside
fi
source "$(dirname "$0")/lib.sh"

mkdir -m 700 "$work/run"
mkdir "$work/out"
export XDG_RUNTIME_DIR="$work/run"
unset DISPLAY WAYLAND_DISPLAY PLENAVUE_BACKEND XDG_CURRENT_DESKTOP XDG_SESSION_DESKTOP QT_QPA_PLATFORM
settings shownIntro=true format=0 "output=$work/out"

socket="pv-weston-$$"
weston --backend=headless-backend.so --xwayland --socket="$socket" --idle-time=0 >"$work/weston.log" 2>&1 &
pids+=("$!")
wait_for grep -q "xserver listening on display" "$work/weston.log" || { cat "$work/weston.log" >&2; exit 1; }
display=$(sed -n 's/.*xserver listening on display \(:[0-9]*\).*/\1/p' "$work/weston.log" | head -n1)
DISPLAY="$display" start xlogo
wait_for sh -c "DISPLAY=$display xwininfo -root -tree | grep -q xlogo" || fail "no X client on Xwayland"

remedy="log in to an X11 (Xorg) session, or to KDE Plasma or GNOME, to capture its windows"
# The environment as a Wayland session sets it, and one that says nothing of Wayland.
while IFS='|' read -r what settings evidence; do
  for command in capture list; do
    args=("$command")
    [ "$command" = capture ] && args+=(--file "$work/out/shot.png")
    status=0
    env $settings "$bin" "${args[@]}" >/dev/null 2>"$work/err" || status=$?
    err="$(cat "$work/err")"
    [ "$status" = 1 ] && [ "$(lines "$err")" = 1 ] || fail "$what, $command: exit status $status: $err"
    grep -qF "plenavue $command: this is a Wayland session ($evidence)" <<<"$err" && grep -qF "; $remedy" <<<"$err" ||
      fail "$what, $command: the session or the remedy is not named: $err"
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
finish
