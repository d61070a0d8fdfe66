// The PSD writer on fuzzed documents: small canvases, pixel layers at
// fractional rectangles with sizes from 0 up, names up to 300 bytes, raw or
// compressed, group markers, and now and then an entry changed after it was
// prepared. Whatever the writer accepts must walk strictly (every length
// exact, every channel exactly its record's rectangle, records at the rounded
// corners); whatever it refuses must leave no file behind.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "document/group_markers.h"
#include "document/layer_preparation.h"
#include "document/psd_writer.h"
#include "fuzz/psd_walk.h"
#include "fuzz/scratch_folder.h"

namespace {

const std::string& target() {
    static const pvfuzz::ScratchFolder folder("pv-fuzz-psd");
    static const std::string path = (folder.path() / "f.psd").string();
    return path;
}

// A coordinate in eighths of a pixel, halves and quarters included.
double coordinate(FuzzedDataProvider& in) { return in.ConsumeIntegralInRange<int>(-800, 800) / 8.0; }

pv::LayerPtr pixelLayer(FuzzedDataProvider& in) {
    auto layer = std::make_shared<pv::LayerElement>();
    const int w = in.ConsumeIntegralInRange(0, 24), h = in.ConsumeIntegralInRange(0, 24);
    // Sometimes a fractional size: the pixels held are the whole part.
    const double extra = in.ConsumeBool() ? in.ConsumeIntegralInRange(0, 7) / 8.0 : 0;
    layer->location = {coordinate(in), coordinate(in), w + extra, h + extra};
    layer->name = in.ConsumeRandomLengthString(300);
    layer->compress = in.ConsumeBool();
    layer->imageData = in.ConsumeBytes<uint8_t>(static_cast<size_t>(w) * h * 4);
    layer->imageData.resize(static_cast<size_t>(w) * h * 4, 0x80);
    return layer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int W = in.ConsumeIntegralInRange(1, 48), H = in.ConsumeIntegralInRange(1, 48);
    std::vector<pv::LayerPtr> layers;  // top of the stack first
    const int count = in.ConsumeIntegralInRange(0, 6);
    for (int i = 0; i < count; ++i) {
        switch (in.ConsumeIntegralInRange(0, 4)) {
        case 0:
            layers.push_back(pv::makeGroupMarker(pv::LayerTypeGroupStart, in.ConsumeRandomLengthString(300)));
            break;
        case 1:
            layers.push_back(pv::makeGroupMarker(pv::LayerTypeGroupEnd, in.ConsumeRandomLengthString(300)));
            break;
        default:
            layers.push_back(pixelLayer(in));
        }
    }
    for (const auto& layer : layers) pv::prepareLayer(*layer);
    // An entry changed after preparation: its rectangle no longer matches its data.
    if (!layers.empty() && in.ConsumeBool()) {
        auto& changed = *layers[in.ConsumeIntegralInRange<size_t>(0, layers.size() - 1)];
        changed.location.width += in.ConsumeIntegralInRange(-2, 2);
        changed.location.height += in.ConsumeIntegralInRange(-2, 2);
    }
    std::vector<uint8_t> merged = in.ConsumeRemainingBytes<uint8_t>();
    merged.resize(static_cast<size_t>(W) * H * 4, 0x40);

    const pv::WriteResult result =
        pv::writePSD(target(), {static_cast<double>(W), static_cast<double>(H)}, merged, layers, "<x/>", nullptr);
    if (!result.ok) {
        if (std::filesystem::exists(target())) std::abort();  // a refusal leaves nothing
        return 0;
    }
    std::ifstream file(target(), std::ios::binary);
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::filesystem::remove(target());
    pvfuzz::WalkedPSD psd;
    try {
        psd = pvfuzz::PsdWalk(bytes).walk();
    } catch (const std::exception&) {
        std::abort();  // written, but a strict reader refuses it
    }
    if (psd.width != static_cast<uint32_t>(W) || psd.height != static_cast<uint32_t>(H) ||
        psd.records.size() != layers.size())
        std::abort();
    for (size_t i = 0; i < layers.size(); ++i) {
        const pv::LayerElement& e = *layers[layers.size() - 1 - i];
        const pvfuzz::WalkedRecord& r = psd.records[i];
        if (e.type != pv::LayerTypePixel) {
            if (r.top != 0 || r.left != 0 || r.bottom != 0 || r.right != 0) std::abort();
            continue;
        }
        // The rounded corner, and the size of the pixels the layer held.
        if (r.left != std::lround(e.location.x) || r.top != std::lround(e.location.y) ||
            r.right - r.left != static_cast<int32_t>(e.location.width) ||
            r.bottom - r.top != static_cast<int32_t>(e.location.height))
            std::abort();
        if (r.name != pv::psdLayerName(e.name)) std::abort();
    }
    return 0;
}
