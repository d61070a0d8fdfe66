#pragma once
// The picture of one window of the inventory, cached in its node.

#include <atomic>
#include <chrono>
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

// How long a compositor may take to answer a batch of pictures.
inline constexpr std::chrono::milliseconds kPictureDeadline{5000};

// The picture to ask for: with its shadow when shadowSetting is on and the
// window is not a system window, by its bounds when it is one.
PictureRequest shotRequest(const PVWindowElement& node, bool shadowSetting);

// The picture as the node's shot: brought to the node's scale when the window
// server gave another, with the shadow margins where the picture says its
// frame lies. Nothing for a picture of 1 pixel or less on a side.
std::optional<Shot> shotOf(const PVWindowElement& node, WindowPicture picture, bool withShadow);

// New pictures of the windows, asked for in one batch. Reads only what the
// inventory fixed when it made the nodes, so any thread may call it. Nothing
// for a window that gives no picture, and for those still open once stop is
// set. Throws PlatformError when the window server can no longer answer.
std::vector<std::optional<Shot>> takeShots(const std::vector<const PVWindowElement*>& nodes, WindowServer& server,
                                           bool shadowSetting, const std::atomic<bool>* stop = nullptr);

// takeShots for one window.
std::optional<Shot> takeShot(const PVWindowElement& node, WindowServer& server, bool shadowSetting);

// Keeps the shot in the node: its picture, and its margins when taken with the
// shadow. Only the thread that owns the tree (the main thread) calls it.
void storeShot(PVWindowElement& node, const Shot& shot);

// The shot the node holds, if any.
std::optional<Shot> heldShot(const PVWindowElement& node);

// takeShot, then storeShot when there is a picture; otherwise the node stays as it was.
void getShot(PVWindowElement& node, WindowServer& server, bool shadowSetting);

// Pictures, in one batch, of every window of the list that holds no shot
// yet; each kept in its node.
void takeMissingShots(const std::vector<PVWindowElement::Ptr>& windows, WindowServer& server, bool shadowSetting);

}  // namespace pv
