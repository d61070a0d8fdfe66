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

// Pictures of windows, asked for together; nothing for a window without one.
using TakeShots = std::function<std::vector<std::optional<Shot>>(const std::vector<const PVWindowElement*>&)>;

// Reports "Capturing: " with the name of each window that holds no shot and
// takes those in one batch (takeShots), then reports "Cached: " for each held
// one and draws each shot behind the ones before it. Windows without a
// picture are left out. Stops before the batch and between windows once
// `cancel` is set; the shots taken are in the result either way. Runs on a
// background thread and writes to no node.
SelectionJobResult composeSelection(const SelectionJobInput& input, const TakeShots& takeShots,
                                    const std::function<void(const std::string&)>& status,
                                    const std::atomic<bool>& cancel);

}  // namespace pv
