#pragma once
// One entry of a layered document: a pixel layer (one captured window) or a
// marker that opens or closes a layer group.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/coordinates.h"
#include "platform/image.h"

namespace pv {

enum LayerType : int32_t {
    LayerTypePixel = 0,       // a window's pixels
    LayerTypeGroupStart = 1,  // written as the group's bounding section divider
    LayerTypeGroupEnd = 2,    // written as the group's folder record, carrying its name
};

struct LayerElement {
    // Byte length of each channel block (red, green, blue, alpha) in imageData
    // once prepared, each including its 2-byte compression code.
    std::array<int32_t, 4> channelSizes{};
    // Before preparation: RGBA8 premultiplied pixels of location's size, rows
    // top to bottom, unless picture holds them. After: the four channel blocks
    // exactly as written.
    std::vector<uint8_t> imageData;
    // Before preparation, when set: the layer's pixels, shared with the
    // window's shot instead of copied into imageData. Preparation reads it
    // without changing it and lets it go.
    ImagePtr picture;
    // Layer name; for a marker, the group's name.
    std::string name;
    bool ready = false;
    // Rectangle in document pixels, top-left origin, y downward.
    CanvasRect location;
    int32_t type = LayerTypePixel;
    // Channels are PackBits-compressed when set, stored raw otherwise.
    bool compress = true;

    // "Layer: <name>, Location: {{x, y}, {w, h}}" for a pixel layer,
    // "Group: <name>" for a marker.
    std::string description() const;

    // The pixels before preparation: picture's when set, imageData's otherwise.
    PixelsView pixelsView(int width, int height) const {
        return {picture ? picture->pixels.data() : imageData.data(), width, height};
    }
    size_t pixelBytes() const { return picture ? picture->pixels.size() : imageData.size(); }
};

using LayerPtr = std::shared_ptr<LayerElement>;

// A layer's rectangle in whole document pixels: what its record states and
// where the merged image draws it, computed here and nowhere else. The corner
// is the rectangle's corner rounded to the nearest pixel (halves away from
// zero); the size is that of the pixels the layer holds and encodes, the
// rectangle's width and height truncated.
struct LayerPixelBounds {
    int32_t left = 0;
    int32_t top = 0;
    int32_t width = 0;
    int32_t height = 0;
    int32_t right() const { return left + width; }
    int32_t bottom() const { return top + height; }
    bool operator==(const LayerPixelBounds&) const = default;
};

// Largest width or height of a pixel layer: a PackBits row of that many
// pixels always fits the file's 16-bit row byte count.
constexpr int32_t kMaxLayerSide = 65026;

// The bounds of a pixel layer's rectangle; nullopt when a number is not
// finite, a size is negative or above kMaxLayerSide, or an edge falls outside
// the record's signed 32-bit fields.
std::optional<LayerPixelBounds> layerPixelBounds(const CanvasRect& location);

// A group marker (type 1 or 2), born ready: four channel blocks holding only
// the raw compression code, 8 zero bytes in all; the zero rectangle.
LayerPtr makeGroupMarker(int32_t type, const std::string& name);

}  // namespace pv
