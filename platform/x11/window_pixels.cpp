#include "platform/x11/window_pixels.h"

#include <xcb/composite.h>

#include <chrono>
#include <thread>

namespace pv::x11 {
namespace {

// Clients repaint the parts that were covered once redirection gives each
// window its own pixmap; this is how long we give them after starting it.
constexpr auto kRepaintGrace = std::chrono::milliseconds(150);

bool compositeUsable(X11Connection& conn) {
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(conn.raw(), &xcb_composite_id);
    if (!ext || !ext->present) return false;
    auto version = conn.get(xcb_composite_query_version_reply, xcb_composite_query_version(conn.raw(), 0, 4));
    return version && (version->major_version > 0 || version->minor_version >= 2);
}

bool compositingManagerRunning(X11Connection& conn) {
    auto owner = conn.get(xcb_get_selection_owner_reply,
                          xcb_get_selection_owner(conn.raw(), conn.atom("_NET_WM_CM_S0")));
    return owner && owner->owner != XCB_NONE;
}

}  // namespace

WindowPixels::WindowPixels(X11Connection& conn, DrawableReader& reader) : conn_(conn), reader_(reader) {}

void WindowPixels::prepare() {
    if (prepared_) return;
    prepared_ = true;
    if (!compositeUsable(conn_)) return;
    if (compositingManagerRunning(conn_)) {
        redirected_ = true;
        return;
    }
    const bool ours = conn_.check(
        xcb_composite_redirect_subwindows_checked(conn_.raw(), conn_.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC));
    // Refused (BadAccess) means another client already redirects them by hand.
    redirected_ = true;
    if (ours) std::this_thread::sleep_for(kRepaintGrace);
}

std::optional<Image> WindowPixels::frame(xcb_window_t frame) {
    prepare();
    auto attributes = conn_.get(xcb_get_window_attributes_reply, xcb_get_window_attributes(conn_.raw(), frame));
    if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE) return std::nullopt;
    if (redirected_)
        if (auto image = fromPixmap(frame, attributes->visual)) return image;
    // Not redirected (no Composite, or a compositor unredirected a full-screen
    // window): the window itself, whose covered parts are then undefined.
    return fromWindow(frame, attributes->visual);
}

std::optional<Image> WindowPixels::fromPixmap(xcb_window_t frame, xcb_visualid_t visual) {
    const xcb_pixmap_t pixmap = xcb_generate_id(conn_.raw());
    if (!conn_.check(xcb_composite_name_window_pixmap_checked(conn_.raw(), frame, pixmap))) return std::nullopt;
    std::optional<Image> image;
    if (auto geometry = conn_.get(xcb_get_geometry_reply, xcb_get_geometry(conn_.raw(), pixmap)))
        image = reader_.read(pixmap, 0, 0, geometry->width, geometry->height,
                             reader_.formatFor(geometry->depth, visual));
    xcb_free_pixmap(conn_.raw(), pixmap);
    return image;
}

std::optional<Image> WindowPixels::fromWindow(xcb_window_t frame, xcb_visualid_t visual) {
    auto geometry = conn_.get(xcb_get_geometry_reply, xcb_get_geometry(conn_.raw(), frame));
    if (!geometry) return std::nullopt;
    const uint16_t border = 2 * geometry->border_width;
    return reader_.read(frame, static_cast<int16_t>(-geometry->border_width),
                        static_cast<int16_t>(-geometry->border_width), geometry->width + border,
                        geometry->height + border, reader_.formatFor(geometry->depth, visual));
}

std::optional<Image> WindowPixels::root() {
    const xcb_screen_t* s = conn_.screen();
    return reader_.read(s->root, 0, 0, s->width_in_pixels, s->height_in_pixels,
                        reader_.formatFor(s->root_depth, s->root_visual));
}

}  // namespace pv::x11
