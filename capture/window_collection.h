#pragma once
// Which windows stand under a node, and in which order they are stacked.

#include <vector>

#include "inventory/window_element.h"

namespace pv {

// Appends every window node at or under node, depth first; duplicates stay.
void collectWindows(const PVWindowElement::Ptr& node, std::vector<PVWindowElement::Ptr>& list);

// The windows under each of the rows, one row after the other.
std::vector<PVWindowElement::Ptr> collectWindowsOf(const std::vector<PVWindowElement::Ptr>& rows);

// Highest window level first; equal levels keep their order.
void sortIntoLayerOrder(std::vector<PVWindowElement::Ptr>& list);

}  // namespace pv
