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

// The layer's rectangle in document pixels on a canvas covering `canvas`
// (bottom-up pixels at scale s; M is the main screen's height in points):
// the window's bounds where they stand on the canvas, moved left and up by
// its shadow margins. The margins are points of the shot, so they become
// pixels at the scale the shot was taken at (the window's scaling), and grow
// with the shot when it is stretched to pixelSize. The left and top edges are
// rounded to whole pixels.
CanvasRect layerLocation(const PVWindowElement& window, Size pixelSize, Size shotSize, const PixelRect& canvas,
                         double s, double M);

// "Application - Window", the layer name of the ungrouped format.
std::string ungroupedLayerName(const std::string& applicationName, const std::string& windowName);

}  // namespace pv
