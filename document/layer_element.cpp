#include "document/layer_element.h"

namespace pv {

std::string LayerElement::description() const {
    if (type == LayerTypePixel) return "Layer: " + name + ", Location: " + rectToString(location);
    return "Group: " + name;
}

LayerPtr makeGroupMarker(int32_t type, const std::string& name) {
    auto marker = std::make_shared<LayerElement>();
    marker->type = type;
    marker->name = name;
    marker->imageData.assign(8, 0);
    marker->channelSizes = {2, 2, 2, 2};
    marker->ready = true;
    return marker;
}

}  // namespace pv
