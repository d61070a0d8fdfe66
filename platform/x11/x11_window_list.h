#pragma once
// The on-screen windows of an X display, frontmost first, as window-list
// entries. What the user sees as one window is a top-level frame (a child of
// the root) around the client window an application made; its bounds are the
// part of that frame the user sees (visible_frame.h).

#include <xcb/xcb.h>

#include <optional>
#include <vector>

#include "platform/desktop_entries.h"
#include "platform/window_server.h"
#include "platform/x11/desktop_layout.h"
#include "platform/x11/x11_connection.h"

namespace pv::x11 {

enum class TopLevelKind {
    Client,            // a window an application made (managed, or any child of the root without a manager)
    PopUp,             // an application's override-redirect window: menu, tooltip, notification
    WindowManagerBar,  // a bar or toolbar the window manager draws itself
};

// A top level that is on screen, with the client inside it (the top level
// itself for pop-ups, bars and unmanaged windows) and its visible frame.
struct TopLevel {
    xcb_window_t frame = XCB_NONE;
    xcb_window_t client = XCB_NONE;
    TopLevelKind kind = TopLevelKind::Client;
    bool overrideRedirect = false;
    RootBox visible;
};

// What the user sees, front to back. Viewable InputOutput children of the root
// whose visible frame meets a monitor, and of those:
// - under a window manager, frames holding a client (WM_STATE) in NormalState
//   on the current desktop or on all desktops;
// - override-redirect windows of applications that carry a window type or a class;
// - the manager's own windows as bars, except one that covers a whole monitor
//   (a guard or background window);
// - without a manager, every child is its own client.
std::vector<TopLevel> onScreenTopLevels(X11Connection& conn, const std::vector<MonitorBox>& monitors);

// The top-level frame that holds window (the window itself when it is a child
// of the root); nullopt when the window is gone.
std::optional<xcb_window_t> frameOf(X11Connection& conn, xcb_window_t window);

// The frame and visible rectangle of the window a list entry names; nullopt when gone.
std::optional<TopLevel> topLevelOf(X11Connection& conn, xcb_window_t number);

struct ListedWindow {
    WindowListEntry entry;
    TopLevel top;
};

// One entry per on-screen top level, with the layers of stackingLevels();
// windows that vanish while being read are dropped. Titles are decoded from
// _NET_WM_NAME (UTF8_STRING), else WM_NAME (STRING, COMPOUND_TEXT or
// UTF8_STRING); each entry's applicationName and applicationIcon come from
// the desktop entry that applications (may be null) matches to its program.
std::vector<ListedWindow> readWindows(X11Connection& conn, const std::vector<MonitorBox>& monitors,
                                      const DesktopLayout& layout, bool hasXRes,
                                      const DesktopEntries* applications = nullptr);
std::vector<WindowListEntry> readWindowList(X11Connection& conn, const std::vector<MonitorBox>& monitors,
                                            const DesktopLayout& layout, bool hasXRes,
                                            const DesktopEntries* applications = nullptr);

}  // namespace pv::x11
