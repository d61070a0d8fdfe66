#include "document/layer_stack.h"

#include <algorithm>
#include <optional>
#include <unordered_map>

#include "capture/window_collection.h"
#include "document/bitmap.h"
#include "document/group_markers.h"
#include "document/layer_placement.h"

namespace pv {

namespace {

LayerPtr pixelLayer(const PVWindowElement& w, OutputFormat format, const PixelRect& canvas, const ScreenMeasures& m) {
    const float s = m.maxBackingScale;
    const Size size = layerPixelSize(w, s, w.shot->width, w.shot->height);
    auto bitmap = bitmapFromImage(w.shot, size.width, size.height);
    if (!bitmap) return nullptr;
    auto layer = std::make_shared<LayerElement>();
    const auto parent = w.parent();
    const std::string parentName = parent ? parent->name : std::string();
    layer->name = format == OutputFormat::UngroupedPSD ? ungroupedLayerName(parentName, w.name) : w.name;
    layer->location = layerLocation(w, {static_cast<double>(bitmap->width), static_cast<double>(bitmap->height)},
                                    {static_cast<double>(w.shot->width), static_cast<double>(w.shot->height)}, canvas,
                                    s, m.mainScreenHeight);
    layer->picture = std::move(bitmap);
    return layer;
}

// The application a window belongs to, the same on every screen: its pid.
uint64_t applicationOf(const PVWindowElement& w) {
    const auto parent = w.parent();
    return parent ? parent->eidi : uint64_t{1} << 32;
}

// Each application's windows together, the application whose window is in
// front first; within one application the stacking order stays.
void groupByApplication(std::vector<PVWindowElement::Ptr>& windows) {
    std::unordered_map<uint64_t, size_t> rank;
    for (const auto& w : windows) rank.emplace(applicationOf(*w), rank.size());
    std::stable_sort(windows.begin(), windows.end(), [&rank](const auto& a, const auto& b) {
        return rank.at(applicationOf(*a)) < rank.at(applicationOf(*b));
    });
}

// Brackets each run of layers of one application: its end marker before the
// run's first layer, its start marker after the run's last.
class GroupBrackets {
public:
    GroupBrackets(std::vector<LayerPtr>& layers, OutputFormat format, int32_t& depth)
        : layers_(layers), format_(format), depth_(depth) {}

    // Called right after the layer of a window of application `group` was appended.
    void appended(uint64_t group, const std::string& name) {
        if (current_ && group == *current_) return;
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
    std::optional<uint64_t> current_;
    std::string currentName_;
};

}  // namespace

LayerStack assembleLayerStack(std::vector<PVWindowElement::Ptr> collected, OutputFormat format, const PixelRect& canvas,
                              const ScreenMeasures& measures, int32_t& groupDepth) {
    removeDuplicates(collected);
    sortIntoLayerOrder(collected);
    if (format == OutputFormat::GroupedPSD) groupByApplication(collected);

    std::vector<LayerPtr> layers;
    GroupBrackets groups(layers, format, groupDepth);
    for (const auto& w : collected) {
        if (!w->shot) continue;
        auto layer = pixelLayer(*w, format, canvas, measures);
        if (!layer) continue;
        layers.push_back(std::move(layer));
        const auto parent = w->parent();
        groups.appended(applicationOf(*w), parent ? parent->name : std::string());
    }
    groups.finish();
    return {std::move(layers), canvas};
}

int32_t markerCount(const std::vector<LayerPtr>& layers) {
    return static_cast<int32_t>(
        std::count_if(layers.begin(), layers.end(), [](const LayerPtr& l) { return l->type != LayerTypePixel; }));
}

}  // namespace pv
