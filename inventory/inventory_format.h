#pragma once
// The inventory tree printed for people (as the outline shows it) and for
// programs (JSON).

#include <string>

#include "inventory/window_element.h"

namespace pv {

// One displayName per line, indented two spaces per level below the root.
std::string inventoryToText(const PVWindowElement& root);

// The tree with kind, eidi, name, displayName, dimensions, windowLevel,
// scaling, isMainDisplay, isSystemWindow and children of every node, and
// role and icon of application nodes.
std::string inventoryToJson(const PVWindowElement& root);

}  // namespace pv
