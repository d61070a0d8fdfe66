#pragma once
// Where the preview draws one window on the canvas of a selection.

#include "platform/coordinates.h"

namespace pv {

// The window's rectangle on a canvas covering the output rectangle R. S is the
// largest backing scale, M the main screen's height in points. The shot is
// drawn into the window's own size, moved left and up by its shadow margins
// (points, not scaled).
CanvasRect selectionDestination(const WindowRect& bounds, float shadowX, float shadowY, const PixelRect& R, float S,
                                float M);

}  // namespace pv
