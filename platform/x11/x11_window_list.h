#pragma once
// The on-screen windows of an X display, frontmost first, as window-list
// entries: what the user sees as one window is a top-level frame (a child of
// the root, decorations included) around the client window an application made.

#include <xcb/xcb.h>

#include <optional>
#include <vector>

#include "platform/window_server.h"
#include "platform/x11/desktop_layout.h"
#include "platform/x11/x11_connection.h"

namespace pv::x11 {

// Viewable top-level frames in stacking order, frontmost first, each with the
// client inside it. Under a window manager a frame without a client is the
// manager's own furniture and left out, unless it is an override-redirect
// window (menus, tooltips); without one every frame is its own client.
struct TopLevel {
    xcb_window_t frame = XCB_NONE;
    xcb_window_t client = XCB_NONE;
};
std::vector<TopLevel> viewableTopLevels(X11Connection& conn);

// The top-level frame that holds window (the window itself when it is a child
// of the root); nullopt when the window is gone.
std::optional<xcb_window_t> frameOf(X11Connection& conn, xcb_window_t window);

// One entry per top level; entries of windows that vanish while being read are dropped.
std::vector<WindowListEntry> readWindowList(X11Connection& conn, const DesktopLayout& layout, bool hasXRes);

}  // namespace pv::x11
