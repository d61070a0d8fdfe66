#!/usr/bin/env bash
# labels: unit
# plenavue list on every shipped fixture prints the tree we expect, its JSON
# form carries the inventory's flags, and bad fixtures end with one clear line.
source "$(dirname "$0")/lib.sh"

for name in one-screen two-screens busy-desktop three-stacked three-offset four-grid names; do
  "$bin" list --desktop "$src/fixtures/$name.json" >"$work/$name.txt"
  diff -u "$src/tests/expected/$name.txt" "$work/$name.txt" || fail "list of $name"
done
"$bin" list --desktop "$src/fixtures/busy-desktop.json" --ignore-system >"$work/ignore.txt"
diff -u "$src/tests/expected/busy-desktop-ignore-system.txt" "$work/ignore.txt" || fail "--ignore-system"

# The JSON tree: system windows flagged, the spanning window under both screens.
"$bin" list --desktop "$src/fixtures/busy-desktop.json" --json >"$work/busy.json"
/usr/bin/python3 - "$work/busy.json" <<'PY' || fail "JSON tree"
import json, sys
root = json.load(open(sys.argv[1]))
assert root["kind"] == 0 and root["name"] == "atelier", root["name"]
main, second = root["children"]
assert main["isMainDisplay"] and not second["isMainDisplay"]
assert main["scaling"] == 2.0 and second["scaling"] == 1.0
apps = {a["name"]: a for a in main["children"]}
system = {(a, w["name"]): w["isSystemWindow"] for a in apps for w in apps[a]["children"]}
assert system[("Dock", "Dock")] and system[("Dock", "Oculith")], system
assert system[("Finder", "<no title>")] and not system[("Finder", "Documents")], system
assert system[("Window Server", "Menubar")] and not system[("SystemUIServer", "Clock")], system
assert apps["Dock"]["children"][1]["dimensions"] == [480, 600, 240, 100]
wide = [w for a in second["children"] for w in a["children"] if w["name"] == "Wide panorama"]
assert len(wide) == 1 and wide[0]["eidi"] == 108
for node in (root, main, apps["Editor"], wide[0]):
    assert set(node) >= {"kind", "eidi", "name", "displayName", "dimensions", "windowLevel", "scaling",
                         "isMainDisplay", "isSystemWindow", "children"}, sorted(node)
PY

# names.json's expected text above holds its Unicode and no control character;
# the JSON keeps the role the rules compare and the icon beside the shown name.
"$bin" list --desktop "$src/fixtures/names.json" --json >"$work/names.json"
/usr/bin/python3 - "$work/names.json" <<'PY' || fail "names in JSON"
import json, sys
apps = {a["name"]: a for a in json.load(open(sys.argv[1]))["children"][0]["children"]}
assert apps["Panel"]["role"] == "Dock" and apps["Panel"]["icon"] == "org.xfce.panel", apps["Panel"]
assert apps["Panel"]["children"][0]["isSystemWindow"]
assert apps["\u00c9diteur \u2713"]["role"] == "Editor" and apps["\u00c9diteur \u2713"]["icon"] == ""
PY

# Bad fixtures: a non-zero exit and one line naming the file.
for bad in "$src"/tests/fixtures/bad/*.json "$work/absent.json"; do
  status=0
  "$bin" list --desktop "$bad" >"$work/out" 2>"$work/err" || status=$?
  [ "$status" -ne 0 ] || fail "$bad accepted"
  [ "$(wc -l <"$work/err")" -eq 1 ] || fail "$bad: expected one line, got: $(cat "$work/err")"
  grep -qF "$bad: " "$work/err" || fail "$bad: message does not name the file: $(cat "$work/err")"
  [ ! -s "$work/out" ] || fail "$bad: printed a tree"
done

finish
