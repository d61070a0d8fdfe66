#pragma once
// The canvas on which a list of windows is laid out: the frame of the one
// screen they lie on, or of the two screens together, in pixels.

#include <vector>

#include "inventory/window_element.h"
#include "platform/coordinates.h"

namespace pv {

// Bottom-up pixels at maxBackingScale; the zero rectangle when no window has a screen.
PixelRect getOutputRect(const std::vector<PVWindowElement::Ptr>& windows, const PVWindowElement& root,
                        float maxBackingScale);

}  // namespace pv
