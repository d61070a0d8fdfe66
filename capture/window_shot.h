#pragma once
// The picture of one window of the inventory, cached in its node.

#include "inventory/window_element.h"
#include "platform/window_server.h"

namespace pv {

// Takes a new picture of the window and stores it in node.shot; with the
// shadow (shadowSetting on, not a system window) also the shadow margins in
// points. A missing picture, or one of 1 pixel or less on a side, leaves the
// node as it was.
void getShot(PVWindowElement& node, WindowServer& server, bool shadowSetting);

}  // namespace pv
