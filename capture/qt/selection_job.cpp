#include "capture/qt/selection_job.h"

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

SelectionJobResult composeSelection(const SelectionJobInput& input,
                                    const std::function<std::optional<Shot>(const PVWindowElement&)>& takeShot,
                                    const std::function<void(const std::string&)>& status,
                                    const std::atomic<bool>& cancel) {
    SelectionJobResult result;
    const auto width = pictureSide(input.outputRect.width), height = pictureSide(input.outputRect.height);
    if (!width || !height) return result;
    result.canvas = Image(*width, *height);
    if (result.canvas.isNull()) return result;
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
        } else {
            status("Capturing: " + node.name);
            shot = takeShot(node);
            if (!shot) continue;
            result.taken.emplace_back(item.node, *shot);
        }
        const CanvasRect dest = selectionDestination(node.windowBounds(), shot->shadowX, shot->shadowY,
                                                     input.outputRect, input.maxBackingScale, input.mainScreenHeight);
        drawBehind(target, *shot->picture, dest);
    }
    return result;
}

}  // namespace pv
