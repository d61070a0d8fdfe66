#pragma once
// One layered document on its way to its file. The run owns its entries, its
// ready count, its merged image and its path from the moment the document is
// assembled until it is written or has failed; nothing outside it touches them.

#include <cstdint>
#include <string>
#include <vector>

#include "document/layer_element.h"
#include "document/safe_file.h"
#include "platform/geometry.h"
#include "platform/image.h"

namespace pv {

struct DocumentRun {
    std::string outputPath;
    OnExisting onExisting = OnExisting::Replace;
    std::vector<LayerPtr> layers;        // top of the stack first
    int32_t readyCount = 0;              // entries of layers that are ready
    ImagePtr merged;                     // the composite, RGBA premultiplied; shared, never changed
    std::vector<uint8_t> encodedMerged;  // merged as the file stores it (encodeMergedImage)
    bool mergedEncoded = false;          // encodeMerged has run (on a worker)
    Size size;                           // the composite's size in pixels
    bool failed = false;

    // The composite becomes the merged image, shared rather than copied; none
    // leaves it empty.
    void takeMergedImage(const ImagePtr& composite);
    // The merged image composed from the run's own layers on a canvas of that
    // size (before they are prepared).
    void composeMergedImage(Size canvas);
    // Encodes the merged image into encodedMerged (empty when there is none);
    // any thread, while the layers are prepared.
    void encodeMerged();
    bool hasPixelLayer() const;
    bool allReady() const { return mergedEncoded && readyCount == static_cast<int32_t>(layers.size()); }
};

}  // namespace pv
