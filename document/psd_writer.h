#pragma once
// The layered PSD writer: version 1, RGB, 8 bits per channel, 4 channels with
// transparency, an XMP resource, one layer record per entry (section dividers
// for group markers), the entries' prepared channel data and a
// PackBits-compressed merged image. Numbers are big-endian.

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "document/layer_element.h"
#include "document/safe_file.h"
#include "platform/geometry.h"

namespace pv {

using StatusFn = std::function<void(const std::string&)>;

// Largest width and height of a PSD document (larger ones need the PSB format).
constexpr int kMaxPSDDimension = 30000;

// A text as the file stores it: ASCII, one byte per character. Each
// character outside ASCII in the UTF-8 input (and each byte that is not
// valid UTF-8) becomes '?'.
std::string asciiText(const std::string& utf8);

// A layer name as the file stores it: asciiText, cut to 255 bytes so that the
// one-byte length, the padding and the bytes agree.
std::string psdLayerName(const std::string& name);

// Size in bytes of the layer record written for `entry`: 67 + n + p + u for
// a pixel layer, 16 more for a group start, 24 more for a group end; u is
// the Unicode name block, 12 + 4 + 2 × (UTF-16 units of the name) rounded up
// to a multiple of 4.
size_t layerRecordSize(const LayerElement& entry);

// The XMP packet: the template with every "XMP_CREATOR", "XMP_DATE",
// "XMP_TITLE", "XMP_WIDTH" and "XMP_HEIGHT" replaced (in that order) by the
// creator tool, the local time as YYYY-MM-DDTHH:MM:SS, the title (made ASCII,
// with & < > " as XML entities), the width and the height; a space is
// appended when that leaves an odd length.
std::string buildXmpPacket(const std::string& xmpTemplate, const std::string& title, int width, int height,
                           const std::tm& localTime);

// Writes the document to `path` through a temporary file that replaces the
// target only when complete. `size` is the canvas in pixels (truncated);
// `merged` holds its RGBA8 premultiplied pixels, written matted over white
// (matteOverWhite) and left as they are. `layers` runs top of the stack first, every entry ready; the file
// holds them bottom first. `status` (may be empty) receives "Writing: <name>"
// per entry and "Writing composite..." from the calling thread.
// Each record states the entry's layerPixelBounds (a marker the zero
// rectangle). Refuses an empty canvas, one over 30000 pixels a side,
// unprepared entries, an entry whose channel data does not hold exactly the
// pixels of its record's rectangle, and a merged buffer smaller than the
// canvas, before creating anything. On
// failure nothing is left at `path` but an earlier file of that name.
WriteResult writePSD(const std::string& path, Size size, const std::vector<uint8_t>& merged,
                     const std::vector<LayerPtr>& layers, const std::string& xmpTemplate, const StatusFn& status,
                     OnExisting onExisting = OnExisting::Replace);

// The merged image as the file stores it after the layers: PackBits row
// counts of all four channels, then the rows channel by channel, colour
// matted over white; the pixels (width x height RGBA8 premultiplied) stay as
// they are. Any thread; lets a caller encode it while the layers are prepared.
std::vector<uint8_t> encodeMergedImage(const uint8_t* rgba, uint64_t width, uint64_t height);

// writePSD with the merged image already encoded by encodeMergedImage at the
// canvas size; refuses an empty one.
WriteResult writeEncodedPSD(const std::string& path, Size size, const std::vector<uint8_t>& encodedMerged,
                            const std::vector<LayerPtr>& layers, const std::string& xmpTemplate, const StatusFn& status,
                            OnExisting onExisting = OnExisting::Replace);

}  // namespace pv
