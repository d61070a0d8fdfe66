#pragma once
// The picture of one window of the inventory, cached in its node.

#include <optional>
#include <vector>

#include "inventory/window_element.h"
#include "platform/window_server.h"

namespace pv {

// A window's picture with the shadow margins (points) that its shadow adds
// around the window; the margins are meaningful only when withShadow is set.
struct Shot {
    ImagePtr picture;
    bool withShadow = false;
    float shadowX = 0;
    float shadowY = 0;
};

// Takes a new picture of the window: with its shadow when shadowSetting is on
// and the window is not a system window, by its bounds when it is one. Reads
// only what the inventory fixed when it made the node, so any thread may call
// it. Nothing when the window server gives no picture, or one of 1 pixel or
// less on a side.
std::optional<Shot> takeShot(const PVWindowElement& node, WindowServer& server, bool shadowSetting);

// Keeps the shot in the node: its picture, and its margins when taken with the
// shadow. Only the thread that owns the tree (the main thread) calls it.
void storeShot(PVWindowElement& node, const Shot& shot);

// The shot the node holds, if any.
std::optional<Shot> heldShot(const PVWindowElement& node);

// takeShot, then storeShot when there is a picture; otherwise the node stays as it was.
void getShot(PVWindowElement& node, WindowServer& server, bool shadowSetting);

// getShot for every window of the list that holds no shot yet.
void takeMissingShots(const std::vector<PVWindowElement::Ptr>& windows, WindowServer& server, bool shadowSetting);

}  // namespace pv
