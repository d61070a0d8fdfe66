#pragma once
// Bracketing a run of layers with group markers. The entry list runs from the
// top of the stack down, and the file is written bottom first, so a group's
// end marker (its folder record) goes before its first layer and its start
// marker (the section divider) after its last.

#include <cstdint>
#include <string>
#include <vector>

#include "document/layer_element.h"
#include "document/output_format.h"

namespace pv {

// Deepest group nesting that keeps its markers.
constexpr int32_t kMaxGroupDepth = 8;

// Closes a group: one step up (groupDepth - 1), then inserts a type 1 marker
// named `name` at `index` when the depth is now 8 or less; deeper markers are
// dropped. The ungrouped format changes nothing. An index outside
// 0..layers.size() throws std::out_of_range.
void insertGroupStart(std::vector<LayerPtr>& layers, int32_t& groupDepth, OutputFormat outputFormat,
                      const std::string& name, int32_t index);

// Opens a group: inserts a type 2 marker at `index` when the depth is 8 or
// less, then one step down (groupDepth + 1) whether or not it was inserted.
// The ungrouped format changes nothing.
void insertGroupEnd(std::vector<LayerPtr>& layers, int32_t& groupDepth, OutputFormat outputFormat,
                    const std::string& name, int32_t index);

}  // namespace pv
