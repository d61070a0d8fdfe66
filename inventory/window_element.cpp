#include "inventory/window_element.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace pv {

void PVWindowElement::addChild(const Ptr& child) { children_.push_back(child); }

void PVWindowElement::removeChild(const PVWindowElement* child) {
    std::erase_if(children_, [child](const Ptr& c) { return c.get() == child; });
}

PVWindowElement::Ptr PVWindowElement::findElementIn(const Ptr& node, uint32_t pid) {
    if (node->kind == PVElementKindApplication && node->eidi == pid) return node;
    for (const auto& c : node->children_) {
        if (auto found = findElementIn(c, pid)) return found;
    }
    return nullptr;
}

PVWindowElement::Ptr PVWindowElement::findElement(uint32_t pid) const {
    if (kind == PVElementKindApplication && eidi == pid) {
        return std::const_pointer_cast<PVWindowElement>(shared_from_this());
    }
    for (const auto& c : children_) {
        if (auto found = findElementIn(c, pid)) return found;
    }
    return nullptr;
}

PVWindowElement::Ptr PVWindowElement::findScreen(uint32_t displayId) const {
    for (const auto& c : children_) {
        if (c->kind == PVElementKindScreen && c->eidi == displayId) return c;
    }
    return nullptr;
}

void PVWindowElement::findNodesIn(const Ptr& node, std::vector<Ptr>& out, Point p) {
    if (node->dimensions.contains(p)) out.push_back(node);
    for (const auto& c : node->children_) findNodesIn(c, out, p);
}

void PVWindowElement::findNodes(std::vector<Ptr>& out, Point p) const {
    findNodesIn(std::const_pointer_cast<PVWindowElement>(shared_from_this()), out, p);
}

PVWindowElement::Ptr PVWindowElement::parent() const {
    std::lock_guard lock(parentMutex_);
    return parent_.lock();
}

void PVWindowElement::setParent(const Ptr& p) {
    std::lock_guard lock(parentMutex_);
    parent_ = p;
}

std::string PVWindowElement::displayName() const {
    // Whole points, truncated toward zero; checked before any conversion, so a
    // size beyond the integers still prints as the number it is.
    const auto i = [](double v) { return fmt::format("{:.0f}", std::trunc(v) + 0.0); };
    const Rect& d = dimensions;
    switch (kind) {
    case PVElementKindRoot:
        return name;
    case PVElementKindScreen:
        return fmt::format("{} (x:{}, y:{}, w:{}, h:{}, {}{})", name, i(d.x), i(d.y), i(d.width), i(d.height),
                           scaling > 1.0f ? "retina" : "non-retina", isMainDisplay ? ", main" : "");
    case PVElementKindApplication:
        return fmt::format("{} (pid: {})", name, static_cast<int32_t>(eidi));
    default:
        return fmt::format("{} (x:{}, y:{}, w:{}, h:{})", name, i(d.x), i(d.y), i(d.width), i(d.height));
    }
}

std::string PVWindowElement::description() const {
    return fmt::format("{}, ({}), {}", name, static_cast<int32_t>(eidi), rectToString(dimensions));
}

}  // namespace pv
