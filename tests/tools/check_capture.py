#!/usr/bin/python3
"""Check a PSD captured from a fixture desktop against what the fixture implies.

Run with Debian's /usr/bin/python3 (python3-psd-tools, numpy, PIL). The
expected document is worked out here from the fixture JSON alone: which
windows are captured, under which application group, in which order, where
each layer stands, its pixels, and the merged image. psd-tools reads the file.

usage: check_capture.py FIXTURE.json FILE.psd grouped|ungrouped shadow|no-shadow [ignore-system]
"""
import json
import math
import os
import sys

import numpy as np
from PIL import Image
from psd_tools import PSDImage

SYSTEM_OWNERS = ("Finder", "Dock", "Window Server", "SystemUIServer")


def node_name(text, fallback):
    """A name as the tree shows it: cut at NUL, without control characters, 127 characters at most."""
    out = "".join(c for c in text.split("\0")[0] if not (ord(c) < 0x20 or 0x7F <= ord(c) <= 0x9F))[:127]
    return out if len(out) > 1 else fallback


def pascal_name(name):
    """The record's own name: one byte per character, '?' outside ASCII, 255 at most."""
    return "".join(c if ord(c) < 128 else "?" for c in name)[:255]


def read_name(layer):
    """The layer's whole name as psd-tools reads it, surrogate pairs joined."""
    return layer.name.encode("utf-16-be", "surrogatepass").decode("utf-16-be")


class Desktop:
    def __init__(self, path):
        self.path = path
        self.data = json.load(open(path))
        self.screens = self.data["screens"]
        self.main_height = self.screens[0]["frame"][3]

    def flipped(self, screen):
        x, y, w, h = screen["frame"]
        return (x, self.main_height - y - h, w, h)

    def touched(self, bounds):
        """Ids of all screens whose flipped frames meet the bounds, in order."""
        bx, by, bw, bh = bounds
        ids = []
        for s in self.screens:
            x, y, w, h = self.flipped(s)
            if bw > 0 and bh > 0 and bx < x + w and x < bx + bw and by < y + h and y < by + bh:
                ids.append(s["displayId"])
        return ids

    def scale_of(self, display_id):
        return next(s["backingScaleFactor"] for s in self.screens if s["displayId"] == display_id)

    def picture(self, window):
        """The window's own picture as float RGBA (straight), or None."""
        pic = window["picture"]
        if pic is None:
            return None
        if "png" in pic:
            img = Image.open(os.path.join(os.path.dirname(self.path), pic["png"])).convert("RGBA")
            return np.asarray(img).astype(np.float64)
        ids = self.touched(window["bounds"])
        scale = max(self.scale_of(i) for i in ids) if ids else max(s["backingScaleFactor"] for s in self.screens)
        w, h = round(window["bounds"][2] * scale), round(window["bounds"][3] * scale)
        return np.tile(np.array(pic["fill"], dtype=np.float64), (h, w, 1))

    def picture_scale(self, window):
        ids = self.touched(window["bounds"])
        return max(self.scale_of(i) for i in ids) if ids else max(s["backingScaleFactor"] for s in self.screens)


class Node:
    def __init__(self, name, screen=None):
        self.name = name
        self.screen = screen
        self.children = []


def inventory(desktop, ignore_system):
    """Screens > applications > windows, filed as the capture files them: a
    window under each screen it touches, one window object for all of them."""
    screens = desktop.screens
    tree = [(s, []) for s in screens]  # (screen, [apps])
    for position, entry in enumerate(desktop.data["windows"]):
        if entry.get("sharingState", 1) == 0:
            continue
        owner = entry.get("ownerName")
        if ignore_system and owner in SYSTEM_OWNERS:
            continue
        window = {
            "entry": entry,
            "name": node_name(entry.get("title", "<no title>"), "<no title>"),
            "bounds": list(entry["bounds"]),
            "level": entry.get("layer", 0),
            "position": position,
            "pid": entry["ownerPID"],
            "system": False,
            "scaling": 0.0,
            "parent": None,
        }
        slots = []
        for display_id in desktop.touched(entry["bounds"]):
            screen, apps = next(t for t in tree if t[0]["displayId"] == display_id)
            slots.append(screen)
            window["scaling"] = max(s["backingScaleFactor"] for s in slots)
            app = next((a for a in apps if a.pid == entry["ownerPID"]), None)
            if app is None:
                role = node_name(owner if owner is not None else "<no owner>", "<no owner>")
                shown = entry.get("applicationName")
                app = Node(role if shown is None else node_name(shown, role), screen)
                app.role = role
                app.pid = entry["ownerPID"]
                apps.append(app)
            window["parent"] = app
            if app.role not in ("Dock", "Finder", "Window Server"):
                app.children.append(window)
                continue
            if app.role == "Window Server" and window["name"] == "Desktop":
                continue
            if window["name"] == "Oculith" and len(slots) == 1:
                window["bounds"][0] -= 20
                window["bounds"][2] += 40
            window["system"] = window["name"] == "<no title>" if app.role == "Finder" else True
            app.children.append(window)
    return [(screen, [a for a in apps if a.children]) for screen, apps in tree]


def rounded(v):
    """Half away from zero, as the document rounds its edges."""
    return math.floor(v + 0.5) if v >= 0 else -math.floor(-v + 0.5)


def desktop_union(desktop):
    """The union of all screens in top-down points: x, y, width, height."""
    frames = [desktop.flipped(x) for x in desktop.screens]
    minx, miny = min(f[0] for f in frames), min(f[1] for f in frames)
    maxx, maxy = max(f[0] + f[2] for f in frames), max(f[1] + f[3] for f in frames)
    return minx, miny, maxx - minx, maxy - miny


def stacking_order(tree, grouped):
    """Every window once, front first: by level, then by the window list's
    order; grouped, each application's windows together, the application of
    the frontmost window first."""
    seen, collected = set(), []
    for _, apps in tree:
        for a in apps:
            for w in a.children:
                if id(w) not in seen:
                    seen.add(id(w))
                    collected.append(w)
    collected.sort(key=lambda w: (-w["level"], w["position"]))
    if grouped:
        rank = {}
        for w in collected:
            rank.setdefault(w["pid"], len(rank))
        collected.sort(key=lambda w: rank[w["pid"]])
    return collected


def expected_layers(desktop, grouped, shadow, ignore_system):
    tree = inventory(desktop, ignore_system)
    s = max(x["backingScaleFactor"] for x in desktop.screens)
    ux, uy, _, _ = desktop_union(desktop)
    layers = []
    for w in stacking_order(tree, grouped):
        pic = desktop.picture(w["entry"])
        if pic is None:
            continue
        ph, pw = pic.shape[:2]
        framed = shadow and not w["system"]
        mx = my = mb = 0
        if framed:
            scale = desktop.picture_scale(w["entry"])
            mx, my, mb = rounded(24 * scale), rounded(16 * scale), rounded(32 * scale)
            pw, ph = pw + 2 * mx, ph + my + mb
        x, y, bw, bh = w["bounds"]
        if s * bw <= pw:
            lw, lh = pw, ph
        else:
            lw, lh = int(bw * s), int(bh * s)
        # Shadow margins in pixels of the shot, stretched with it.
        left = rounded((x - ux) * s - mx * lw / pw)
        top = rounded((y - uy) * s - my * lh / ph)
        name = w["name"] if grouped else "%s - %s" % (w["parent"].name, w["name"])
        layers.append({
            "name": name, "group": w["pid"], "group_name": w["parent"].name, "framed": framed,
            "stretched": s * bw > pw, "fill": w["entry"]["picture"].get("fill"),
            "box": (left, top, left + lw, top + lh),
            "bottom_margin": mb,
        })
    return layers


def layer_pixels(layer):
    psd = layer._psd
    planes = {}
    for info, data in zip(layer._record.channel_info, layer._channels):
        planes[int(info.id)] = np.frombuffer(data.get_data(layer.width, layer.height, psd.depth, psd.version),
                                             dtype=np.uint8).reshape(layer.height, layer.width)
    return np.dstack([planes[0], planes[1], planes[2], planes[-1]])


def merged_pixels(psd):
    planes = psd._record.image_data.get_data(psd._record.header, True)
    return np.dstack([np.frombuffer(p, dtype=np.uint8).reshape(psd.height, psd.width) for p in planes[:4]])


def expected_desktop(desktop):
    """Windows back to front over opaque black on the screens' union."""
    s = max(x["backingScaleFactor"] for x in desktop.screens)
    minx, miny, width, height = desktop_union(desktop)
    canvas = np.zeros((round(height * s), round(width * s), 3))
    for entry in reversed(desktop.data["windows"]):
        if entry.get("sharingState", 1) == 0:
            continue
        pic = desktop.picture(entry)
        if pic is None:
            continue
        x0, y0 = round((entry["bounds"][0] - minx) * s), round((entry["bounds"][1] - miny) * s)
        over(canvas, pic, x0, y0)
    return canvas


def over(canvas, pic, x0, y0):
    """Draws straight RGBA pixels with their top-left corner at x0, y0 over an RGB canvas."""
    h, w = pic.shape[:2]
    cx0, cy0 = max(0, x0), max(0, y0)
    cx1, cy1 = min(canvas.shape[1], x0 + w), min(canvas.shape[0], y0 + h)
    if cx1 <= cx0 or cy1 <= cy0:
        return
    src = pic[cy0 - y0:cy1 - y0, cx0 - x0:cx1 - x0]
    a = src[:, :, 3:4] / 255.0
    canvas[cy0:cy1, cx0:cx1] = src[:, :, :3] * a + canvas[cy0:cy1, cx0:cx1] * (1 - a)


def layers_composed(psd, pixel_layers):
    """The pixel layers, bottom first, over opaque black: the picture a reader
    that rebuilds the document from its layers shows."""
    canvas = np.zeros((psd.height, psd.width, 3))
    for layer in pixel_layers:
        over(canvas, layer_pixels(layer).astype(np.float64), layer.left, layer.top)
    return canvas


def main(argv):
    if len(argv) < 5:
        sys.stderr.write(__doc__)
        return 2
    desktop = Desktop(argv[1])
    psd = PSDImage.open(argv[2])
    grouped = argv[3] == "grouped"
    shadow = argv[4] == "shadow"
    ignore = len(argv) > 5 and argv[5] == "ignore-system"
    problems = []

    expected = expected_layers(desktop, grouped, shadow, ignore)
    # psd-tools lists the bottom of the stack first.
    actual = []
    if grouped:
        groups = list(psd)
        runs = []
        for layer in reversed(expected):
            if runs and runs[-1][0] == layer["group"]:
                runs[-1][1].append(layer)
            else:
                runs.append((layer["group"], [layer]))
        if len(groups) != len(runs):
            problems.append("groups: expected %d, found %d" % (len(runs), len(groups)))
        for group, (_, members) in zip(groups, runs):
            name = members[0]["group_name"]
            if not group.is_group() or read_name(group) != name or group._record.name != pascal_name(name):
                problems.append("group %r (%s): expected a group named %r" % (read_name(group), group.kind, name))
                continue
            children = list(group)
            if len(children) != len(members):
                problems.append("group %r: expected %d layers, found %d" % (name, len(members), len(children)))
            actual.extend(zip(children, members))
    else:
        layers = list(psd)
        if any(l.is_group() for l in layers):
            problems.append("ungrouped document holds a group")
        if len(layers) != len(expected):
            problems.append("layers: expected %d, found %d" % (len(expected), len(layers)))
        actual = list(zip(layers, reversed(expected)))

    for layer, want in actual:
        box = (layer.left, layer.top, layer.right, layer.bottom)
        if read_name(layer) != want["name"]:
            problems.append("layer name %r, expected %r" % (read_name(layer), want["name"]))
        if layer._record.name != pascal_name(want["name"]):
            problems.append("record name %r, expected %r" % (layer._record.name, pascal_name(want["name"])))
        if box != want["box"]:
            problems.append("%s: box %s, expected %s" % (want["name"], box, want["box"]))
        if want["fill"] is None or layer.width == 0:
            continue
        px = layer_pixels(layer)
        h, w = px.shape[:2]
        centre = px[h // 2, w // 2].astype(int)
        fill = np.array(want["fill"])
        if want["framed"] and fill[3] < 255:
            # The shadow shows through a translucent window: only more opaque.
            if centre[3] < fill[3] - 1:
                problems.append("%s: centre pixel %s, expected at least alpha %d" % (want["name"], list(centre), fill[3]))
        elif abs(centre[3] - fill[3]) > 1 or (fill[3] > 0 and np.abs(centre[:3] - fill[:3]).max() > 2):
            problems.append("%s: centre pixel %s, expected %s" % (want["name"], list(centre), list(fill)))
        if want["framed"] and not want["stretched"]:
            # Just below the window's own bottom edge, inside the lower margin.
            below = px[h - want["bottom_margin"] + 4, w // 2].astype(int)
            corner = px[0, 0].astype(int)
            if not (0 < below[3] < 255 and below[:3].max() <= 8):
                problems.append("%s: no soft dark shadow below the window: %s" % (want["name"], list(below)))
            if corner[3] != 0:
                problems.append("%s: shadow corner not clear: %s" % (want["name"], list(corner)))

    if "desktop" not in desktop.data:
        merged = merged_pixels(psd).astype(int)
        want = expected_desktop(desktop)
        if merged.shape[:2] != want.shape[:2]:
            problems.append("merged image %s, expected %s" % (merged.shape[:2], want.shape[:2]))
        else:
            diff = np.abs(merged[:, :, :3] - want).max()
            if diff > 2 or merged[:, :, 3].min() != 255:
                problems.append("merged image differs from the desktop by up to %d" % diff)
            # Ungrouped (a group per application cannot show windows of two
            # applications interleaved), without shadows, and where every
            # picture is at the canvas's scale (the desktop picture shows
            # others at their own size), the layers in their order make the
            # merged image.
            one_scale = len({x["backingScaleFactor"] for x in desktop.screens}) == 1
            if not grouped and not shadow and one_scale:
                composed = layers_composed(psd, [layer for layer, _ in actual])
                diff = np.abs(merged[:, :, :3] - composed).max()
                if diff > 2:
                    problems.append("the layers composed differ from the merged image by up to %d" % diff)

    for p in problems:
        print("MISMATCH %s: %s" % (os.path.basename(argv[2]), p))
    if not problems:
        print("ok %s: %d layers" % (os.path.basename(argv[2]), len(actual)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
