#include "capture/window_collection.h"

#include <algorithm>
#include <unordered_set>

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

void removeDuplicates(std::vector<PVWindowElement::Ptr>& list) {
    std::unordered_set<const PVWindowElement*> seen;
    std::erase_if(list, [&seen](const PVWindowElement::Ptr& w) { return !seen.insert(w.get()).second; });
}

void sortIntoLayerOrder(std::vector<PVWindowElement::Ptr>& list) {
    std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) {
        if (a->windowLevel != b->windowLevel) return a->windowLevel > b->windowLevel;
        return a->listPosition < b->listPosition;
    });
}

}  // namespace pv
