#pragma once
// The selection job: composes the chosen windows on one canvas, each where it
// stood on the desktop, the first of the list in front.

#include <functional>
#include <string>
#include <vector>

#include "inventory/window_element.h"
#include "platform/image.h"

namespace pv {

struct SelectionJobInput {
    std::vector<PVWindowElement::Ptr> windows;  // in layer order
    Rect outputRect;                            // canvas, bottom-up pixels
    float maxBackingScale = 0;
    float mainScreenHeight = 0;
};

// Takes the shot of every window that has none yet (takeShot), reports
// "Cached: " or "Capturing: " with each window's name, and draws each shot
// behind the ones before it. Windows without a picture are left out.
// Runs on a background thread; the nodes must not be captured elsewhere meanwhile.
Image composeSelection(const SelectionJobInput& input, const std::function<void(PVWindowElement&)>& takeShot,
                       const std::function<void(const std::string&)>& status);

}  // namespace pv
