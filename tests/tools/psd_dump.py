#!/usr/bin/python3
"""Print a PSD file as JSON, as psd-tools reads it.

Run with Debian's /usr/bin/python3 (python3-psd-tools). The layer tree is
listed the way psd-tools iterates it: bottom of the stack first. Pixels are
the raw channel data of each layer and of the merged image (straight colour,
alpha as stored), never a composite matted over a background. "name" is the
name psd-tools reads (the Unicode name block where there is one),
"pascal_name" the record's own one-byte-per-character name.

usage: psd_dump.py FILE [--pixels]
       psd_dump.py --summary FILE...
  --pixels   add each layer's and the merged image's RGBA bytes as base64
  --summary  write a text outline of each FILE.psd to FILE.txt, front of the
             stack first: every layer's kind, names, box and pixels' digest,
             for comparison with an expected outline (one run for many
             files, as psd-tools is slow to start)
"""
import base64
import hashlib
import json
import sys

import numpy as np
from psd_tools import PSDImage


def interleave(planes, width, height):
    """RGBA bytes from channel planes keyed by channel id (0, 1, 2, -1)."""
    rgba = np.zeros((height, width, 4), dtype=np.uint8)
    for index, cid in enumerate((0, 1, 2, -1)):
        if cid in planes:
            plane = np.frombuffer(planes[cid], dtype=np.uint8)
            rgba[:, :, index] = plane[: width * height].reshape((height, width))
        elif cid == -1:
            rgba[:, :, index] = 255
    return rgba.tobytes()


def pixel_summary(rgba, with_pixels):
    out = {"sha256": hashlib.sha256(rgba).hexdigest(), "bytes": len(rgba)}
    if with_pixels:
        out["rgba"] = base64.b64encode(rgba).decode("ascii")
    return out


def layer_rgba(layer):
    psd = layer._psd
    width, height = layer.width, layer.height
    planes = {}
    for info, data in zip(layer._record.channel_info, layer._channels):
        planes[int(info.id)] = data.get_data(width, height, psd.depth, psd.version)
    return interleave(planes, width, height)


def whole_characters(text):
    """psd-tools gives one character per UTF-16 unit; join surrogate pairs."""
    return text.encode("utf-16-be", "surrogatepass").decode("utf-16-be", "replace")


def describe(layer, with_pixels):
    node = {
        "name": whole_characters(layer.name),
        "pascal_name": layer._record.name,
        "kind": layer.kind,
        "visible": bool(layer.visible),
        "left": int(layer.left),
        "top": int(layer.top),
        "right": int(layer.right),
        "bottom": int(layer.bottom),
        "blend_mode": layer.blend_mode.name.lower(),
        "opacity": int(layer.opacity),
    }
    if layer.is_group():
        node["children"] = [describe(child, with_pixels) for child in layer]
    elif layer.width > 0 and layer.height > 0:
        node["pixels"] = pixel_summary(layer_rgba(layer), with_pixels)
    return node


def merged_rgba(psd):
    record = psd._record
    header = record.header
    planes = record.image_data.get_data(header, True)
    ids = {0: 0, 1: 1, 2: 2, 3: -1}
    return interleave({ids[i]: p for i, p in enumerate(planes) if i in ids}, psd.width, psd.height)


def outline(nodes, indent=""):
    for n in reversed(nodes):
        digest = n["pixels"]["sha256"][:16] if "pixels" in n else "-"
        yield "%s%s %r %r (%d, %d, %d, %d) %s" % (indent, n["kind"], n["name"], n["pascal_name"], n["left"], n["top"],
                                                  n["right"], n["bottom"], digest)
        yield from outline(n.get("children", []), indent + "  ")


def summary(psd):
    head = "%dx%d, %d channels, merged %s" % (psd.width, psd.height, psd.channels,
                                              pixel_summary(merged_rgba(psd), False)["sha256"][:16])
    return "\n".join([head] + list(outline([describe(layer, False) for layer in psd]))) + "\n"


def main(argv):
    args = [a for a in argv[1:] if not a.startswith("--")]
    with_pixels = "--pixels" in argv
    if "--summary" in argv and args:
        for path in args:
            with open(path[: -len(".psd")] + ".txt", "w") as out:
                out.write(summary(PSDImage.open(path)))
        return 0
    if len(args) != 1:
        sys.stderr.write(__doc__)
        return 2
    psd = PSDImage.open(args[0])
    layer_info = psd._record.layer_and_mask_information.layer_info
    xmp = psd.image_resources.get_data(1060)
    if isinstance(xmp, bytes):
        xmp = xmp.decode("ascii", "replace")
    result = {
        "width": psd.width,
        "height": psd.height,
        "channels": psd.channels,
        "depth": psd.depth,
        "color_mode": int(psd.color_mode),
        "layer_count": int(layer_info.layer_count) if layer_info is not None else 0,
        "xmp": xmp,
        "layers": [describe(layer, with_pixels) for layer in psd],
        "merged": pixel_summary(merged_rgba(psd), with_pixels),
    }
    json.dump(result, sys.stdout, indent=1)
    sys.stdout.write("\n")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
