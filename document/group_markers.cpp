#include "document/group_markers.h"

#include <stdexcept>

namespace pv {

namespace {

void insertAt(std::vector<LayerPtr>& layers, int32_t index, LayerPtr marker) {
    if (index < 0 || static_cast<size_t>(index) > layers.size())
        throw std::out_of_range("group marker index " + std::to_string(index) + " outside 0.." +
                                std::to_string(layers.size()));
    layers.insert(layers.begin() + index, std::move(marker));
}

}  // namespace

void insertGroupStart(std::vector<LayerPtr>& layers, int32_t& groupDepth, OutputFormat outputFormat,
                      const std::string& name, int32_t index) {
    if (outputFormat == OutputFormat::UngroupedPSD) return;
    --groupDepth;
    auto marker = makeGroupMarker(LayerTypeGroupStart, name);
    if (groupDepth <= kMaxGroupDepth) insertAt(layers, index, std::move(marker));
}

void insertGroupEnd(std::vector<LayerPtr>& layers, int32_t& groupDepth, OutputFormat outputFormat,
                    const std::string& name, int32_t index) {
    if (outputFormat == OutputFormat::UngroupedPSD) return;
    auto marker = makeGroupMarker(LayerTypeGroupEnd, name);
    if (groupDepth <= kMaxGroupDepth) insertAt(layers, index, std::move(marker));
    ++groupDepth;
}

}  // namespace pv
