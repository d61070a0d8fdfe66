#include "capture/qt/selection_job.h"

#include <algorithm>
#include <map>

#include "capture/selection_geometry.h"
#include "document/qt/bitmap.h"

namespace pv {

SelectionJobInput selectionJobInput(const std::vector<PVWindowElement::Ptr>& windowsInLayerOrder,
                                    const PixelRect& outputRect, float maxBackingScale, float mainScreenHeight) {
    SelectionJobInput input;
    input.outputRect = outputRect;
    input.maxBackingScale = maxBackingScale;
    input.mainScreenHeight = mainScreenHeight;
    for (const auto& w : windowsInLayerOrder) input.windows.push_back({w, heldShot(*w)});
    return input;
}

SelectionJobResult composeSelection(const SelectionJobInput& input, const TakeShots& takeShots,
                                    const std::function<void(const std::string&)>& status,
                                    const std::atomic<bool>& cancel) {
    SelectionJobResult result;
    const auto width = pictureSide(input.outputRect.width), height = pictureSide(input.outputRect.height);
    if (!width || !height) return result;
    result.canvas = Image(*width, *height);
    if (result.canvas.isNull()) return result;

    // The windows without a shot, each once, in one batch.
    std::vector<const PVWindowElement*> missing;
    for (const SelectionItem& item : input.windows) {
        if (item.held || std::find(missing.begin(), missing.end(), item.node.get()) != missing.end()) continue;
        missing.push_back(item.node.get());
        status("Capturing: " + item.node->name);
    }
    std::map<const PVWindowElement*, Shot> taken;
    if (!missing.empty()) {
        if (cancel.load()) {
            result.cancelled = true;
            return result;
        }
        const auto shots = takeShots(missing);
        for (const SelectionItem& item : input.windows) {
            const auto at = std::find(missing.begin(), missing.end(), item.node.get());
            if (at == missing.end() || taken.count(*at)) continue;
            const auto& shot = shots[static_cast<size_t>(at - missing.begin())];
            if (!shot) continue;
            taken.emplace(*at, *shot);
            result.taken.emplace_back(item.node, *shot);
        }
    }

    QImage target = wrapImageForDrawing(result.canvas);
    for (const SelectionItem& item : input.windows) {
        if (cancel.load()) {
            result.cancelled = true;
            return result;
        }
        const PVWindowElement& node = *item.node;
        std::optional<Shot> shot = item.held;
        if (shot) {
            status("Cached: " + node.name);
        } else if (auto it = taken.find(&node); it != taken.end()) {
            shot = it->second;
        } else {
            continue;
        }
        const CanvasRect dest = selectionDestination(node.windowBounds(), shot->shadowX, shot->shadowY,
                                                     input.outputRect, input.maxBackingScale, input.mainScreenHeight);
        drawBehind(target, *shot->picture, dest);
    }
    return result;
}

}  // namespace pv
