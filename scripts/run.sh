#!/usr/bin/env bash
# `make run`: on a reachable X display, capture it into ~/Pictures/Plenavue;
# without one, capture a private demo desktop (scripts/demo-desktop.sh).
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
bin="${1:-$here/build/plenavue}"

display_reachable() {
  [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1
}

# What `make run` does on the user's own display. This is the one place that
# changes when the tray application is the thing to start.
run_on_display() {
  exec "$bin" capture --format grouped --output "$HOME/Pictures/Plenavue"
}

if display_reachable; then
  run_on_display
else
  exec bash "$here/scripts/demo-desktop.sh" "$bin"
fi
