#pragma once
// Which windows stand under a node, and in which order they are stacked.

#include <vector>

#include "inventory/window_element.h"

namespace pv {

// Appends every window node at or under node, depth first; duplicates stay.
void collectWindows(const PVWindowElement::Ptr& node, std::vector<PVWindowElement::Ptr>& list);

// The windows under each of the rows, one row after the other.
std::vector<PVWindowElement::Ptr> collectWindowsOf(const std::vector<PVWindowElement::Ptr>& rows);

// Keeps the first of each window node: a window on several screens is
// reached once through each of them.
void removeDuplicates(std::vector<PVWindowElement::Ptr>& list);

// The on-screen stacking, front first: highest window level first, and
// within one level the window list's order (front to back).
void sortIntoLayerOrder(std::vector<PVWindowElement::Ptr>& list);

}  // namespace pv
