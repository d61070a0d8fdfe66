#!/usr/bin/env bash
# Runs a command inside a private headless KDE Plasma compositor: KWin on a
# virtual output with Xwayland, on a session bus of its own
# (dbus-run-session), then stops it all.
#
#   kwin-session.sh [--width W] [--height H]
#                   [--permission-checks] [--lock-support] [--kwin-env VAR=VALUE]...
#                   [--install-entry BINARY] -- COMMAND [ARGS...]
#
# The command runs with WAYLAND_DISPLAY, DISPLAY (Xwayland, whichever number
# KWin took), XDG_RUNTIME_DIR, DBUS_SESSION_BUS_ADDRESS, XDG_SESSION_TYPE=wayland,
# XDG_CURRENT_DESKTOP=KDE, XDG_CONFIG_HOME / XDG_DATA_HOME / XDG_CACHE_HOME in
# the session's own folder (KWin, kglobalaccel and KService write there, never
# into ~), PV_SESSION_DIR and PV_KWIN_PID.
#   --permission-checks  KWin checks who may take pictures (tests of permission)
#   --lock-support       the screen locker runs (org.freedesktop.ScreenSaver)
#   --install-entry BIN  a desktop entry allowing BIN pictures, as the install writes
# Exit status: the command's; 70 when KWin did not come up.
set -euo pipefail

if [ -z "${PV_KWIN_SESSION_BUS:-}" ]; then
  exec env -u DBUS_SESSION_BUS_ADDRESS PV_KWIN_SESSION_BUS=1 dbus-run-session -- bash "$0" "$@"
fi
unset PV_KWIN_SESSION_BUS

width=1280 height=800 checks=0 lock=0 entry="" extra_env=()
while [ $# -gt 0 ]; do
  case "$1" in
    --width) width=$2; shift 2 ;;
    --height) height=$2; shift 2 ;;
    --permission-checks) checks=1; shift ;;
    --lock-support) lock=1; shift ;;
    --kwin-env) extra_env+=("$2"); shift 2 ;;
    --install-entry) entry=$2; shift 2 ;;
    --) shift; break ;;
    *) echo "kwin-session: unknown option $1" >&2; exit 64 ;;
  esac
done
[ $# -gt 0 ] || { echo "kwin-session: no command" >&2; exit 64; }

dir=$(mktemp -d /tmp/kwin-session.XXXXXX)
mkdir -m 700 "$dir/run"
mkdir -p "$dir/config" "$dir/data/applications" "$dir/cache"
kwin_pid="" watcher_pid=""

stop() {
  # KWin takes Xwayland and its clients' connections with it; the bus ends
  # with dbus-run-session.
  if [ -n "$kwin_pid" ] && kill -0 "$kwin_pid" 2>/dev/null; then kill -TERM "$kwin_pid" 2>/dev/null || true; fi
  [ -n "$watcher_pid" ] && wait "$watcher_pid" 2>/dev/null || true
  rm -rf "$dir"
}
trap stop EXIT

# No animations: a window minimised or raised is so at once, and nothing
# waits for an effect to end.
printf '[KDE]\nAnimationDurationFactor=0\n' >"$dir/config/kdeglobals"

if [ -n "$entry" ]; then
  printf '[Desktop Entry]\nType=Application\nName=Plenavue\nExec=%s\nX-KDE-DBUS-Restricted-Interfaces=org.kde.KWin.ScreenShot2\n' \
    "$(realpath "$entry")" >"$dir/data/applications/plenavue.desktop"
fi

# Debian's kwin_wayland carries cap_sys_resource, which exec refuses where the
# capability cannot be granted; a plain copy has none.
kwin="$dir/kwin_wayland"
cp /usr/bin/kwin_wayland "$kwin"

export XDG_RUNTIME_DIR="$dir/run" XDG_CONFIG_HOME="$dir/config" XDG_DATA_HOME="$dir/data" XDG_CACHE_HOME="$dir/cache"
export XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=KDE KDE_SESSION_VERSION=5
unset DISPLAY WAYLAND_DISPLAY XAUTHORITY PLENAVUE_BACKEND QT_QPA_PLATFORM
socket="wayland-pv-$$"

# KWin starts the programs named on its command line once Wayland and
# Xwayland are up: ready.sh reports Xwayland's display through a fifo. A
# watcher reports KWin's end through the same fifo, so a failed start does
# not leave us waiting.
mkfifo "$dir/ready"
printf '#!/bin/sh\nprintf "READY DISPLAY=%%s\\n" "$DISPLAY" > "$PV_READY_FIFO"\n' >"$dir/ready.sh"
chmod +x "$dir/ready.sh"
exec 3<>"$dir/ready"

env_args=(PV_READY_FIFO="$dir/ready" LIBGL_ALWAYS_SOFTWARE=1)
[ "$checks" = 0 ] && env_args+=(KWIN_SCREENSHOT_NO_PERMISSION_CHECKS=1)
env_args+=("${extra_env[@]}")
kwin_args=(--virtual --xwayland --width "$width" --height "$height" --socket "$socket")
[ "$lock" = 0 ] && kwin_args+=(--no-lockscreen)

(
  env "${env_args[@]}" "$kwin" "${kwin_args[@]}" "$dir/ready.sh" >"$dir/kwin.log" 2>&1 </dev/null &
  echo $! >"$dir/kwin.pid"
  wait $! && rc=0 || rc=$?
  echo "EXITED $rc" >"$dir/ready"
) &
watcher_pid=$!

line=""
read -r -t 60 -u 3 line || true
kwin_pid=$(cat "$dir/kwin.pid" 2>/dev/null || true)
case "$line" in
  READY*) display=${line#READY DISPLAY=} ;;
  *)
    echo "kwin-session: KWin did not come up (${line:-no word in 60 s}); its log:" >&2
    tail -20 "$dir/kwin.log" >&2
    exit 70 ;;
esac

export WAYLAND_DISPLAY="$socket" DISPLAY="$display" PV_SESSION_DIR="$dir" PV_KWIN_PID="$kwin_pid"
rc=0
"$@" 3<&- || rc=$?
exit $rc
