#include "document/document_run.h"

#include <algorithm>

#include "document/merged_image.h"

namespace pv {

void DocumentRun::takeMergedImage(const ImagePtr& composite) {
    if (!composite || composite->isNull()) return;
    size = {static_cast<double>(composite->width), static_cast<double>(composite->height)};
    mergedImageData = composite->pixels;  // the writer un-premultiplies its own copy
}

void DocumentRun::composeMergedImage(Size canvas) {
    const auto width = pictureSide(canvas.width), height = pictureSide(canvas.height);
    if (!width || !height) return;
    Image merged = composeLayers(layers, *width, *height);
    if (merged.isNull()) return;
    size = {static_cast<double>(merged.width), static_cast<double>(merged.height)};
    mergedImageData = std::move(merged.pixels);
}

bool DocumentRun::hasPixelLayer() const {
    return std::any_of(layers.begin(), layers.end(), [](const LayerPtr& l) { return l->type == LayerTypePixel; });
}

}  // namespace pv
