#pragma once
// The frame the user sees around a window, in root pixels. A top-level frame
// is not always that: window managers with invisible borders (resize handles,
// room for their shadow) make the frame larger than what they draw, and
// client-side-decorated windows (GTK) draw their own shadow inside the
// client window. Both say where the visible part is: the manager in
// _NET_FRAME_EXTENTS (the decorations it adds around the client), the client in
// _GTK_FRAME_EXTENTS (its invisible margins).

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/x11/desktop_layout.h"
#include "platform/x11/x11_connection.h"

namespace pv::x11 {

// Left, right, top, bottom, in the order both properties store them.
struct FrameExtents {
    uint32_t left = 0;
    uint32_t right = 0;
    uint32_t top = 0;
    uint32_t bottom = 0;
};

// The visible frame from what the server and the properties say. topLevel is the
// root's child (border included), client the client window (border included),
// both in root pixels. A client with its own margins is shrunk by them; else a
// client the manager states extents for is grown by them; else the top level
// is the frame. The result never reaches past the top level, whose pixels are
// all there is, and is the top level when the properties make no sense.
RootBox visibleFrame(const RootBox& topLevel, const RootBox& client, const std::optional<FrameExtents>& managerExtents,
                     const std::optional<FrameExtents>& clientMargins);

// Windows' outer rectangles (border included) in root pixels, nullopt for those gone.
using RootRects = std::unordered_map<xcb_window_t, std::optional<RootBox>>;

// The same, read from the server; nullopt when either window is gone. The
// rectangles of windows in `known` are not asked for again.
std::optional<RootBox> readVisibleFrame(X11Connection& conn, xcb_window_t topLevel, xcb_window_t client,
                                        const RootRects& known = {});

std::optional<RootBox> readRootRect(X11Connection& conn, xcb_window_t window);
// The rectangles of many windows, asked for together.
RootRects readRootRects(X11Connection& conn, const std::vector<xcb_window_t>& windows);

}  // namespace pv::x11
