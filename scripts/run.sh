#!/usr/bin/env bash
# `make run`: on a reachable X display, start the tray application; without
# one, capture a private demo desktop (scripts/demo-desktop.sh) into a PSD.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
bin="${1:-$here/build/plenavue}"

display_reachable() {
  [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1
}

# On the user's own display: the tray application (Shift+Super+5 captures).
run_on_display() {
  echo "Plenavue runs in the system tray: Shift+Super+5 captures everything, Shift+Super+6 lets you choose." >&2
  exec "$bin"
}

if display_reachable; then
  run_on_display
else
  exec bash "$here/scripts/demo-desktop.sh" "$bin"
fi
