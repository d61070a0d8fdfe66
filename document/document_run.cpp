#include "document/document_run.h"

#include <algorithm>

namespace pv {

void DocumentRun::takeMergedImage(const ImagePtr& composite) {
    if (!composite || composite->isNull()) return;
    size = {static_cast<double>(composite->width), static_cast<double>(composite->height)};
    mergedImageData = composite->pixels;  // the writer un-premultiplies its own copy
}

bool DocumentRun::hasPixelLayer() const {
    return std::any_of(layers.begin(), layers.end(), [](const LayerPtr& l) { return l->type == LayerTypePixel; });
}

}  // namespace pv
