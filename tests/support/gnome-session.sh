#!/usr/bin/env bash
# Runs a command inside a private headless GNOME Shell (Wayland, Xwayland) with
# Plenavue's extension installed as a system extension and enabled, on a
# session bus of its own and a private system bus (the shell asks logind),
# then stops it all.
#
#   gnome-session.sh [--width W] [--height H] --extension DIR -- COMMAND [ARGS...]
#
# The command runs with WAYLAND_DISPLAY, DISPLAY and XAUTHORITY (Xwayland),
# XDG_RUNTIME_DIR, DBUS_SESSION_BUS_ADDRESS, XDG_SESSION_TYPE=wayland,
# XDG_CURRENT_DESKTOP=GNOME, HOME and XDG_* folders in the session's own
# folder, PV_SESSION_DIR and PV_COMPOSITOR_PID (the shell).
# Exit status: the command's; 70 when the shell did not come up.
set -euo pipefail

width=1280 height=800 ext=""
while [ $# -gt 0 ]; do
  case "$1" in
    --width) width=$2; shift 2 ;;
    --height) height=$2; shift 2 ;;
    --extension) ext=$2; shift 2 ;;
    --) shift; break ;;
    *) echo "gnome-session: unknown option $1" >&2; exit 64 ;;
  esac
done
[ $# -gt 0 ] && [ -d "$ext" ] || { echo "gnome-session: need --extension DIR and a command" >&2; exit 64; }

if [ -z "${PV_GNOME_INNER:-}" ]; then
  dir=$(mktemp -d /tmp/gnome-session.XXXXXX)
  mkdir -m 700 "$dir/run"
  mkdir -p "$dir/home" "$dir/config" "$dir/share/gnome-shell/extensions"
  uuid=$(basename "$ext")
  cp -r "$ext" "$dir/share/gnome-shell/extensions/$uuid"
  export HOME="$dir/home" XDG_RUNTIME_DIR="$dir/run" XDG_CONFIG_HOME="$dir/config"
  export XDG_DATA_HOME="$dir/home/.local/share" XDG_CACHE_HOME="$dir/home/.cache"
  export XDG_DATA_DIRS="$dir/share:${XDG_DATA_DIRS:-/usr/local/share:/usr/share}"
  export GSETTINGS_BACKEND=keyfile LIBGL_ALWAYS_SOFTWARE=1 NO_AT_BRIDGE=1
  unset DISPLAY WAYLAND_DISPLAY XAUTHORITY DBUS_SESSION_BUS_ADDRESS PLENAVUE_BACKEND QT_QPA_PLATFORM
  # No version check (the build names 43-44 or 45+), no welcome tour, no
  # banners (root is told it is privileged), no animations.
  gsettings set org.gnome.shell disable-extension-version-validation true
  gsettings set org.gnome.shell welcome-dialog-last-shown-version '999'
  gsettings set org.gnome.desktop.notifications show-banners false
  gsettings set org.gnome.desktop.interface enable-animations false
  gsettings set org.gnome.shell enabled-extensions "['$uuid']"

  printf '<busconfig><type>system</type><listen>unix:path=%s</listen><auth>EXTERNAL</auth><policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>\n' \
    "$dir/run/system_bus_socket" >"$dir/system-bus.conf"
  coproc SYSBUS { exec dbus-daemon --config-file="$dir/system-bus.conf" --nofork --nopidfile --print-address=1 2>/dev/null; }
  sysbus_pid=$SYSBUS_PID
  trap 'kill "$sysbus_pid" 2>/dev/null || true; wait "$sysbus_pid" 2>/dev/null || true; rm -rf "$dir"' EXIT
  read -r -t 10 DBUS_SYSTEM_BUS_ADDRESS <&"${SYSBUS[0]}" || { echo "gnome-session: no system bus" >&2; exit 70; }
  export DBUS_SYSTEM_BUS_ADDRESS
  rc=0
  PV_GNOME_INNER="$dir" dbus-run-session -- bash "$0" --width "$width" --height "$height" --extension "$ext" -- "$@" || rc=$?
  exit $rc
fi

# On the session's own bus.
dir=$PV_GNOME_INNER
unset PV_GNOME_INNER
socket="wayland-pv-$$"
gnome-shell --headless --virtual-monitor "${width}x${height}" --wayland --wayland-display "$socket" \
  >"$dir/shell.log" 2>&1 </dev/null &
shell_pid=$!
trap 'kill -TERM "$shell_pid" 2>/dev/null || true; wait "$shell_pid" 2>/dev/null || true' EXIT
fail() { echo "gnome-session: $*; the shell's log:" >&2; tail -20 "$dir/shell.log" >&2; exit 70; }

# The extension takes its bus name once the shell has finished starting.
for ((i = 0; i < 60; i++)); do
  kill -0 "$shell_pid" 2>/dev/null || fail "the shell exited"
  gdbus wait --session --timeout 1 com.veltrano.Plenavue.Shell 2>/dev/null && break
done
[ "$i" -lt 60 ] || fail "the extension did not come up in 60 s"

# The shell opens the Overview at start; close it and wait until it is hidden.
shell=(gdbus call --session -d org.gnome.Shell -o /org/gnome/Shell -m org.freedesktop.DBus.Properties)
coproc MON { exec gdbus monitor --session --dest org.gnome.Shell --object-path /org/gnome/Shell; }
read -r -t 5 _ <&"${MON[0]}" || true
if [ "$("${shell[@]}".Get org.gnome.Shell OverviewActive)" = "(<true>,)" ]; then
  "${shell[@]}".Set org.gnome.Shell OverviewActive '<false>' >/dev/null
  while read -r -t 10 line <&"${MON[0]}"; do
    case "$line" in *"'OverviewActive': <false>"*) break ;; esac
  done
fi
kill "$MON_PID" 2>/dev/null || true

# Xwayland's display and cookie, from the Xwayland the shell started.
xwayland=$(pgrep -P "$shell_pid" -x Xwayland || true)
if [ -n "$xwayland" ]; then
  mapfile -d '' args <"/proc/$xwayland/cmdline"
  export DISPLAY=${args[1]}
  for ((i = 0; i < ${#args[@]}; i++)); do [ "${args[$i]}" = -auth ] && export XAUTHORITY=${args[$((i + 1))]}; done
fi
export WAYLAND_DISPLAY="$socket" XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=GNOME
export PV_SESSION_DIR="$dir" PV_COMPOSITOR_PID="$shell_pid"
rc=0
"$@" || rc=$?
exit $rc
