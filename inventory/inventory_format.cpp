#include "inventory/inventory_format.h"

#include <nlohmann/json.hpp>

namespace pv {

namespace {

void appendText(const PVWindowElement& node, int depth, std::string& out) {
    out.append(static_cast<size_t>(depth) * 2, ' ');
    out += node.displayName();
    out += '\n';
    for (const auto& child : node.children()) appendText(*child, depth + 1, out);
}

nlohmann::ordered_json toJson(const PVWindowElement& node) {
    const Rect& d = node.dimensions;
    nlohmann::ordered_json j;
    j["kind"] = node.kind;
    j["eidi"] = node.eidi;
    j["name"] = node.name;
    j["displayName"] = node.displayName();
    if (node.kind == PVElementKindApplication) {
        j["role"] = node.role;
        j["icon"] = node.iconName;
    }
    j["dimensions"] = {d.x, d.y, d.width, d.height};
    j["windowLevel"] = node.windowLevel;
    j["scaling"] = node.scaling;
    j["isMainDisplay"] = node.isMainDisplay;
    j["isSystemWindow"] = node.isSystemWindow;
    j["children"] = nlohmann::ordered_json::array();
    for (const auto& child : node.children()) j["children"].push_back(toJson(*child));
    return j;
}

}  // namespace

std::string inventoryToText(const PVWindowElement& root) {
    std::string out;
    appendText(root, 0, out);
    return out;
}

std::string inventoryToJson(const PVWindowElement& root) { return toJson(root).dump(2) + "\n"; }

}  // namespace pv
