#pragma once
// Where the preview draws one window on the canvas of a selection.

#include "inventory/window_element.h"
#include "platform/geometry.h"

namespace pv {

// The window's rectangle on a canvas of the output rectangle R, in canvas
// pixels with the origin at the canvas's bottom-left corner, y growing upward.
// S is the largest backing scale, M the main screen's height in points. The
// shot is drawn into the window's own size, moved left and up by its shadow
// margins (points, not scaled).
Rect selectionDestination(const PVWindowElement& window, const Rect& R, float S, float M);

// The same rectangle with the origin at the canvas's top-left corner, y down.
Rect flipToTopDown(const Rect& bottomUp, double canvasHeight);

}  // namespace pv
