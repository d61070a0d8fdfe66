#pragma once
// Small helpers shared by the X11 tests: finding entries, reading geometry
// and pictures the way independent tools (xwininfo, xprop, xwd, ImageMagick)
// report them, and comparing pictures.

#include <xcb/xcb.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/geometry.h"
#include "platform/image.h"
#include "platform/window_server.h"
#include "tests/x11/xvfb_session.h"

namespace pv {
template <class Space>
void PrintTo(const BasicRect<Space>& r, std::ostream* os) {
    *os << rectToString(r);
}
}  // namespace pv

namespace pv::test {

std::optional<WindowListEntry> entryTitled(const std::vector<WindowListEntry>& list, const std::string& title);

// Waits until the server lists a window with each of the titles.
bool waitForTitles(WindowServer& server, const std::vector<std::string>& titles);

// Waits until the window's picture holds still (its client has drawn everything).
bool waitUntilDrawn(WindowServer& server, uint32_t number);

// The frame the user sees around a client window, in root pixels, computed
// from what xwininfo and xprop report: the client shrunk by its own
// _GTK_FRAME_EXTENTS and grown by the manager's _NET_FRAME_EXTENTS; without
// either, the top-level window that holds the client.
Rect frameByTools(XvfbSession& session, uint32_t client);
// A window's rectangle, border included, in root pixels as xwininfo reports it.
Rect outerRectByTools(XvfbSession& session, uint32_t window);

// The top-level window (child of the root) that holds window.
xcb_window_t topLevelOf(xcb_connection_t* c, xcb_window_t window);

// A top-level window of the given depth (24 or 32) filled with one pixel
// value, mapped and drawn; no window manager assumed.
xcb_window_t makeFilledWindow(xcb_connection_t* c, int depth, int x, int y, int width, int height, uint32_t pixel,
                              const std::string& title);

// The window's pixels as xwd dumps them and ImageMagick decodes them, opaque;
// nullopt when either fails.
std::optional<Image> xwdPicture(XvfbSession& session, xcb_window_t window);

// Count of pixels that differ between two pictures of equal size; -1 when the sizes differ.
long differingPixels(const Image& a, const Image& b);
// The sub-picture at x, y of the given size.
Image cropped(const Image& image, int x, int y, int width, int height);

}  // namespace pv::test
