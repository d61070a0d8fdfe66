#pragma once
// A top-level window's own pixels, whole even where other windows cover it or
// the screen edge cuts it: each top level is redirected off screen (Composite)
// and its backing pixmap read. When no compositing manager does the
// redirection, we ask for automatic redirection of the root's children
// ourselves; the server then keeps drawing the screen as before. A compositing
// manager may take a window out of redirection (a full-screen game, or any
// window with picom's --unredir-if-possible); such a window is redirected for
// the moment of its picture, repainted by its client, read and let go again.
// Outside a shaped window's bounding shape the picture is transparent.

#include <xcb/xcb.h>

#include <optional>
#include <vector>

#include "platform/image.h"
#include "platform/x11/drawable_reader.h"
#include "platform/x11/x11_connection.h"

namespace pv::x11 {

class WindowPixels {
public:
    WindowPixels(X11Connection& conn, DrawableReader& reader);

    // Sets up redirection now, so that clients have repainted what was covered
    // by the time the first picture is taken.
    void prepare();
    // The frame's pixels as they are now; nullopt when it is gone or unmapped.
    std::optional<Image> frame(xcb_window_t frame);
    // What the screen shows: the root window with everything on it.
    std::optional<Image> root();

    bool redirected() const { return redirected_; }

private:
    std::optional<Image> fromPixmap(xcb_window_t frame, xcb_visualid_t visual);
    std::optional<Image> fromBriefRedirection(xcb_window_t frame, xcb_visualid_t visual);
    void settleAfterRedirection(const std::vector<uint32_t>& damages);
    void askForRepaint(xcb_window_t window, int depth);
    void waitForRepaint(uint32_t damage);
    void keepInsideShape(xcb_window_t frame, Image& image);
    std::optional<Image> fromWindow(xcb_window_t frame, xcb_visualid_t visual);

    X11Connection& conn_;
    DrawableReader& reader_;
    bool prepared_ = false;
    bool redirected_ = false;
    uint8_t damageEventBase_ = 0;  // 0 without the Damage extension
    bool shapeOffered_ = false;
};

}  // namespace pv::x11
