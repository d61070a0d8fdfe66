#include "capture/window_collection.h"

#include <algorithm>

namespace pv {

void collectWindows(const PVWindowElement::Ptr& node, std::vector<PVWindowElement::Ptr>& list) {
    if (node->kind == PVElementKindWindow) {
        list.push_back(node);
        return;
    }
    for (const auto& child : node->children()) collectWindows(child, list);
}

std::vector<PVWindowElement::Ptr> collectWindowsOf(const std::vector<PVWindowElement::Ptr>& rows) {
    std::vector<PVWindowElement::Ptr> list;
    for (const auto& row : rows) collectWindows(row, list);
    return list;
}

void sortIntoLayerOrder(std::vector<PVWindowElement::Ptr>& list) {
    std::stable_sort(list.begin(), list.end(),
                     [](const auto& a, const auto& b) { return a->windowLevel > b->windowLevel; });
}

}  // namespace pv
