#pragma once
// The selection job: composes the chosen windows on one canvas, each where it
// stood on the desktop, the first of the list in front.

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "capture/window_shot.h"
#include "inventory/window_element.h"
#include "platform/image.h"

namespace pv {

struct SelectionItem {
    PVWindowElement::Ptr node;  // read only for what the inventory fixed in it
    std::optional<Shot> held;   // the node's shot when the selection was made
};

struct SelectionJobInput {
    std::vector<SelectionItem> windows;  // in layer order
    PixelRect outputRect;                // the canvas
    float maxBackingScale = 0;
    float mainScreenHeight = 0;
};

struct SelectionJobResult {
    Image canvas;
    // Shots the job took, for the main thread to keep in their nodes.
    std::vector<std::pair<PVWindowElement::Ptr, Shot>> taken;
    bool cancelled = false;
};

// The job's input: the windows in layer order with the shots they hold now.
SelectionJobInput selectionJobInput(const std::vector<PVWindowElement::Ptr>& windowsInLayerOrder,
                                    const PixelRect& outputRect, float maxBackingScale, float mainScreenHeight);

// Uses each window's held shot or takes one (takeShot), reports "Cached: " or
// "Capturing: " with each window's name, and draws each shot behind the ones
// before it. Windows without a picture are left out. Stops between windows
// once `cancel` is set. Runs on a background thread and writes to no node.
SelectionJobResult composeSelection(const SelectionJobInput& input,
                                    const std::function<std::optional<Shot>(const PVWindowElement&)>& takeShot,
                                    const std::function<void(const std::string&)>& status,
                                    const std::atomic<bool>& cancel);

}  // namespace pv
