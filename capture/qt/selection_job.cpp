#include "capture/qt/selection_job.h"

#include "capture/selection_geometry.h"
#include "document/qt/bitmap.h"

namespace pv {

Image composeSelection(const SelectionJobInput& input, const std::function<void(PVWindowElement&)>& takeShot,
                       const std::function<void(const std::string&)>& status) {
    Image canvas(static_cast<int>(input.outputRect.width), static_cast<int>(input.outputRect.height));
    if (canvas.isNull()) return canvas;
    QImage target = wrapImageForDrawing(canvas);
    for (const auto& node : input.windows) {
        if (node->shot) {
            status("Cached: " + node->name);
        } else {
            status("Capturing: " + node->name);
            takeShot(*node);
            if (!node->shot) continue;
        }
        const Rect bottomUp = selectionDestination(*node, input.outputRect, input.maxBackingScale,
                                                   input.mainScreenHeight);
        drawBehind(target, *node->shot, flipToTopDown(bottomUp, canvas.height));
    }
    return canvas;
}

}  // namespace pv
