#pragma once
// The layer stack of a document: one pixel layer per captured window, named
// and placed, bracketed by group markers in the grouped format.

#include <cstdint>
#include <vector>

#include "document/layer_element.h"
#include "document/output_format.h"
#include "inventory/inventory.h"

namespace pv {

// The collected windows (in outline order; a window reached through several
// screens counts once) as the entries of a document, top of the stack first,
// in the on-screen stacking order (sortIntoLayerOrder):
// - grouped format: each application's windows together, bracketed by group
//   markers named after it; the application whose window is frontmost first;
// - ungrouped format: named "Application - Window".
// A window without a shot is left out. Each layer shares its shot's picture
// when that is the layer's size and holds a scaled copy otherwise, placed on `canvas` (bottom-up pixels at the
// largest backing scale). groupDepth is the nesting counter that the group
// markers share.
struct LayerStack {
    std::vector<LayerPtr> layers;  // top of the stack first
    PixelRect canvas;              // the output rectangle the layers are placed on
};
LayerStack assembleLayerStack(std::vector<PVWindowElement::Ptr> collected, OutputFormat format, const PixelRect& canvas,
                              const ScreenMeasures& measures, int32_t& groupDepth);

// How many entries of the stack are group markers (born ready).
int32_t markerCount(const std::vector<LayerPtr>& layers);

}  // namespace pv
