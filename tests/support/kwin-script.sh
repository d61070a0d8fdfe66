#!/usr/bin/env bash
# Runs a KWin script once in the session of $DBUS_SESSION_BUS_ADDRESS: loads
# the text given, runs it, unloads it.   kwin-script.sh 'JAVASCRIPT'
set -euo pipefail
name="pv-script-$$-$RANDOM"
file="${PV_SESSION_DIR:-/tmp}/$name.js"
printf '%s\n' "$1" >"$file"
call() { gdbus call --session --dest org.kde.KWin "$@"; }
id=$(call --object-path /Scripting --method org.kde.kwin.Scripting.loadScript "$file" "$name" | tr -dc '0-9-')
call --object-path "/$id" --method org.kde.kwin.Script.run >/dev/null
call --object-path /Scripting --method org.kde.kwin.Scripting.unloadScript "$name" >/dev/null
rm -f "$file"
