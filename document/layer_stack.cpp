#include "document/layer_stack.h"

#include <algorithm>

#include "capture/output_geometry.h"
#include "capture/window_collection.h"
#include "document/bitmap.h"
#include "document/group_markers.h"
#include "document/layer_placement.h"

namespace pv {

namespace {

LayerPtr pixelLayer(const PVWindowElement& w, OutputFormat format, double outputX, const ScreenMeasures& m) {
    const float s = m.maxBackingScale;
    const Size size = layerPixelSize(w, s, w.shot->width, w.shot->height);
    auto bitmap = bitmapFromImage(*w.shot, size.width, size.height);
    if (!bitmap) return nullptr;
    auto layer = std::make_shared<LayerElement>();
    const auto parent = w.parent();
    const std::string parentName = parent ? parent->name : std::string();
    layer->name = format == OutputFormat::UngroupedPSD ? ungroupedLayerName(parentName, w.name) : w.name;
    layer->location = layerLocation(w, {static_cast<double>(bitmap->width), static_cast<double>(bitmap->height)},
                                    outputX, s, m.screenTopOffset);
    layer->imageData = std::move(bitmap->pixels);
    return layer;
}

// Brackets each run of layers of one application: its end marker before the
// run's first layer, its start marker after the run's last.
class GroupBrackets {
public:
    GroupBrackets(std::vector<LayerPtr>& layers, OutputFormat format, int32_t& depth)
        : layers_(layers), format_(format), depth_(depth) {}

    // Called right after the layer of a window of `group` was appended.
    void appended(const PVWindowElement* group, const std::string& name) {
        if (group == current_) return;
        if (current_) insertGroupStart(layers_, depth_, format_, currentName_, lastIndex());
        insertGroupEnd(layers_, depth_, format_, name, lastIndex());
        current_ = group;
        currentName_ = name;
    }
    void finish() {
        if (current_) insertGroupStart(layers_, depth_, format_, currentName_, static_cast<int32_t>(layers_.size()));
    }

private:
    int32_t lastIndex() const { return static_cast<int32_t>(layers_.size()) - 1; }

    std::vector<LayerPtr>& layers_;
    OutputFormat format_;
    int32_t& depth_;
    const PVWindowElement* current_ = nullptr;
    std::string currentName_;
};

}  // namespace

LayerStack assembleLayerStack(std::vector<PVWindowElement::Ptr> collected, OutputFormat format,
                              const PVWindowElement& root, const ScreenMeasures& measures, int32_t& groupDepth) {
    if (format != OutputFormat::GroupedPSD) sortIntoLayerOrder(collected);
    const PixelRect R = getOutputRect(collected, root, measures.maxBackingScale);

    std::vector<LayerPtr> layers;
    GroupBrackets groups(layers, format, groupDepth);
    for (const auto& w : collected) {
        if (!w->shot) continue;
        auto layer = pixelLayer(*w, format, R.x, measures);
        if (!layer) continue;
        layers.push_back(std::move(layer));
        const auto parent = w->parent();
        groups.appended(parent.get(), parent ? parent->name : std::string());
    }
    groups.finish();
    return {std::move(layers), R};
}

int32_t markerCount(const std::vector<LayerPtr>& layers) {
    return static_cast<int32_t>(
        std::count_if(layers.begin(), layers.end(), [](const LayerPtr& l) { return l->type != LayerTypePixel; }));
}

}  // namespace pv
