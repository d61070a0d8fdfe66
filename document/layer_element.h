#pragma once
// One entry of a layered document: a pixel layer (one captured window) or a
// marker that opens or closes a layer group.

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/coordinates.h"

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
    // top to bottom. After: the four channel blocks exactly as written.
    std::vector<uint8_t> imageData;
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
};

using LayerPtr = std::shared_ptr<LayerElement>;

// A group marker (type 1 or 2), born ready: four channel blocks holding only
// the raw compression code, 8 zero bytes in all; the zero rectangle.
LayerPtr makeGroupMarker(int32_t type, const std::string& name);

}  // namespace pv
