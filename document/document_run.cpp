#include "document/document_run.h"

#include <algorithm>

#include "document/merged_image.h"
#include "document/psd_writer.h"

namespace pv {

void DocumentRun::takeMergedImage(const ImagePtr& composite) {
    if (!composite || composite->isNull()) return;
    size = {static_cast<double>(composite->width), static_cast<double>(composite->height)};
    merged = composite;
}

void DocumentRun::composeMergedImage(Size canvas) {
    const auto width = pictureSide(canvas.width), height = pictureSide(canvas.height);
    if (!width || !height) return;
    Image composed = composeLayers(layers, *width, *height);
    if (composed.isNull()) return;
    size = {static_cast<double>(composed.width), static_cast<double>(composed.height)};
    merged = std::make_shared<const Image>(std::move(composed));
}

void DocumentRun::encodeMerged() {
    if (merged)
        encodedMerged = encodeMergedImage(merged->pixels.data(), static_cast<uint64_t>(merged->width),
                                          static_cast<uint64_t>(merged->height));
}

bool DocumentRun::hasPixelLayer() const {
    return std::any_of(layers.begin(), layers.end(), [](const LayerPtr& l) { return l->type == LayerTypePixel; });
}

}  // namespace pv
