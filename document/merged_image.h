#pragma once
// The merged image of a document composed from its own layers, as a reader
// that rebuilds the picture from the layers would show it.

#include <vector>

#include "document/layer_element.h"
#include "platform/image.h"

namespace pv {

// The pixel layers (top of the stack first, still holding their premultiplied
// pixels) drawn bottom first over transparency on a width x height canvas.
Image composeLayers(const std::vector<LayerPtr>& layers, int width, int height);

}  // namespace pv
