#pragma once
// Size and place of a window's layer in the document.

#include <string>

#include "inventory/window_element.h"
#include "platform/coordinates.h"

namespace pv {

// The layer's pixel size: the shot's own size when it is at least as wide as
// the window at scale s (a shot with its shadow is wider), otherwise the
// window's point size times s (the shot is stretched to it).
Size layerPixelSize(const PVWindowElement& window, float s, int shotWidth, int shotHeight);

// The layer's rectangle in document pixels. outputX is the x origin of the
// output rectangle; the document's top edge is the main screen's top raised
// by screenTopOffset points. The window's shadow margins move it left and up.
CanvasRect layerLocation(const PVWindowElement& window, Size pixelSize, double outputX, float s,
                         float screenTopOffset);

// "Application - Window", the layer name of the ungrouped format.
std::string ungroupedLayerName(const std::string& applicationName, const std::string& windowName);

}  // namespace pv
