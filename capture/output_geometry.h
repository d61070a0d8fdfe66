#pragma once
// The canvas on which a list of windows is laid out: the screens they stand
// on, or every screen, in pixels.

#include <vector>

#include "inventory/window_element.h"
#include "platform/coordinates.h"

namespace pv {

// The smallest rectangle holding every screen that one of the windows
// touches, in bottom-up pixels at maxBackingScale; the zero rectangle when no
// window has a screen. For one screen it is that screen's frame, for two
// screens side by side their frames together.
PixelRect getOutputRect(const std::vector<PVWindowElement::Ptr>& windows, float maxBackingScale);

// The smallest rectangle holding every screen of the tree: the canvas of a
// capture of everything, which the desktop picture covers.
PixelRect getDesktopRect(const PVWindowElement& root, float maxBackingScale);

}  // namespace pv
