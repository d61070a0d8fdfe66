#!/usr/bin/env bash
# The main job: list the inventory of a shipped fixture desktop.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
bin="${1:-$here/build/plenavue}"
exec "$bin" list --desktop "$here/fixtures/busy.json"
