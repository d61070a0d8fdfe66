#include "platform/x11/window_pixels.h"

#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/shape.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace pv::x11 {
namespace {

// Clients repaint the parts that were covered once redirection gives each
// window its own pixmap. Their drawing counts as done once it has paused this
// long, and is waited for this long at most (without Damage, the whole time).
constexpr auto kSettleQuiet = std::chrono::milliseconds(20);
constexpr auto kSettleMost = std::chrono::milliseconds(150);
// A window redirected for its picture: how long its client may take to start
// repainting, and how long drawing must have paused for the repaint to count as done.
constexpr auto kRepaintStart = std::chrono::milliseconds(1000);
constexpr auto kRepaintQuiet = std::chrono::milliseconds(60);
// Subwindows deeper than this inside a frame are left to repaint by themselves.
constexpr int kRepaintDepth = 4;

bool compositeUsable(X11Connection& conn) {
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(conn.raw(), &xcb_composite_id);
    if (!ext || !ext->present) return false;
    auto version = conn.get(xcb_composite_query_version_reply, xcb_composite_query_version(conn.raw(), 0, 4));
    return version && (version->major_version > 0 || version->minor_version >= 2);
}

bool compositingManagerRunning(X11Connection& conn) {
    auto owner =
        conn.get(xcb_get_selection_owner_reply, xcb_get_selection_owner(conn.raw(), conn.atom("_NET_WM_CM_S0")));
    return owner && owner->owner != XCB_NONE;
}

}  // namespace

WindowPixels::WindowPixels(X11Connection& conn, DrawableReader& reader) : conn_(conn), reader_(reader) {}

void WindowPixels::prepare() {
    if (prepared_) return;
    prepared_ = true;
    if (!compositeUsable(conn_)) return;
    const xcb_query_extension_reply_t* shape = xcb_get_extension_data(conn_.raw(), &xcb_shape_id);
    shapeOffered_ = shape && shape->present;
    const xcb_query_extension_reply_t* damage = xcb_get_extension_data(conn_.raw(), &xcb_damage_id);
    if (damage && damage->present &&
        conn_.get(xcb_damage_query_version_reply, xcb_damage_query_version(conn_.raw(), 1, 1)))
        damageEventBase_ = damage->first_event;
    if (compositingManagerRunning(conn_)) {
        redirected_ = true;
        return;
    }
    // Drawing into the top levels is watched from before the redirection on.
    std::vector<uint32_t> damages;
    if (damageEventBase_ != 0) {
        auto tree = conn_.get(xcb_query_tree_reply, xcb_query_tree(conn_.raw(), conn_.root()));
        const xcb_window_t* children = tree ? xcb_query_tree_children(tree.get()) : nullptr;
        const int count = tree ? xcb_query_tree_children_length(tree.get()) : 0;
        std::vector<xcb_get_window_attributes_cookie_t> cookies;
        for (int i = 0; i < count; ++i) cookies.push_back(xcb_get_window_attributes(conn_.raw(), children[i]));
        for (int i = 0; i < count; ++i) {
            // Only shown windows with pixels can be drawn into.
            auto a = conn_.get(xcb_get_window_attributes_reply, cookies[static_cast<size_t>(i)]);
            if (!a || a->map_state != XCB_MAP_STATE_VIEWABLE || a->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT) continue;
            damages.push_back(xcb_generate_id(conn_.raw()));
            xcb_damage_create(conn_.raw(), damages.back(), children[i], XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
        }
    }
    const bool ours = conn_.check(
        xcb_composite_redirect_subwindows_checked(conn_.raw(), conn_.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC));
    // Refused (BadAccess) means another client already redirects them by hand.
    redirected_ = true;
    if (ours) settleAfterRedirection(damages);
    for (uint32_t d : damages) xcb_damage_destroy(conn_.raw(), d);
    xcb_flush(conn_.raw());
}

// The server's own copies into the new pixmaps are reported at once; then
// clients repaint what was covered. The wait ends when no window has been
// drawn into for a moment.
void WindowPixels::settleAfterRedirection(const std::vector<uint32_t>& damages) {
    if (damages.empty()) {
        std::this_thread::sleep_for(kSettleMost);
        return;
    }
    const auto isDamage = [&](const xcb_generic_event_t& e) {
        return (e.response_type & 0x7f) == damageEventBase_ + XCB_DAMAGE_NOTIFY;
    };
    const auto until = std::chrono::steady_clock::now() + kSettleMost;
    bool drawn = true;
    while (drawn) {
        for (uint32_t d : damages) xcb_damage_subtract(conn_.raw(), d, XCB_NONE, XCB_NONE);
        xcb_flush(conn_.raw());
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        drawn = conn_.waitForEvent(isDamage, std::min(kSettleQuiet, left));
    }
}

std::optional<Image> WindowPixels::frame(xcb_window_t frame) {
    prepare();
    auto attributes = conn_.get(xcb_get_window_attributes_reply, xcb_get_window_attributes(conn_.raw(), frame));
    if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE) return std::nullopt;
    std::optional<Image> image;
    if (redirected_) {
        image = fromPixmap(frame, attributes->visual);
        if (!image) image = fromBriefRedirection(frame, attributes->visual);
    }
    if (image) {
        keepInsideShape(frame, *image);
        return image;
    }
    // Not redirected (no Composite, or a compositor unredirected a full-screen
    // window): the window itself, whose covered parts are then undefined.
    return fromWindow(frame, attributes->visual);
}

std::optional<Image> WindowPixels::fromPixmap(xcb_window_t frame, xcb_visualid_t visual) {
    const xcb_pixmap_t pixmap = xcb_generate_id(conn_.raw());
    if (!conn_.check(xcb_composite_name_window_pixmap_checked(conn_.raw(), frame, pixmap))) return std::nullopt;
    std::optional<Image> image;
    if (auto geometry = conn_.get(xcb_get_geometry_reply, xcb_get_geometry(conn_.raw(), pixmap)))
        image =
            reader_.read(pixmap, 0, 0, geometry->width, geometry->height, reader_.formatFor(geometry->depth, visual));
    xcb_free_pixmap(conn_.raw(), pixmap);
    return image;
}

// A shaped window (rounded frame corners, round clocks) shows only what lies
// inside its bounding shape; its pixmap holds undefined pixels elsewhere,
// which become transparent.
void WindowPixels::keepInsideShape(xcb_window_t frame, Image& image) {
    if (!shapeOffered_) return;
    auto extents = conn_.get(xcb_shape_query_extents_reply, xcb_shape_query_extents(conn_.raw(), frame));
    if (!extents || !extents->bounding_shaped) return;
    auto geometry = conn_.get(xcb_get_geometry_reply, xcb_get_geometry(conn_.raw(), frame));
    auto shape =
        conn_.get(xcb_shape_get_rectangles_reply, xcb_shape_get_rectangles(conn_.raw(), frame, XCB_SHAPE_SK_BOUNDING));
    if (!geometry || !shape) return;
    // Shape rectangles are relative to the inside corner of the border; the pixmap starts outside it.
    const int border = geometry->border_width;
    std::vector<uint8_t> inside(static_cast<size_t>(image.width) * image.height, 0);
    const xcb_rectangle_t* rects = xcb_shape_get_rectangles_rectangles(shape.get());
    for (int i = 0; i < xcb_shape_get_rectangles_rectangles_length(shape.get()); ++i) {
        const int x0 = std::max(0, rects[i].x + border), y0 = std::max(0, rects[i].y + border);
        const int x1 = std::min(image.width, rects[i].x + border + rects[i].width);
        const int y1 = std::min(image.height, rects[i].y + border + rects[i].height);
        for (int y = y0; y < y1; ++y)
            std::fill_n(inside.begin() + static_cast<long>(y) * image.width + x0, std::max(0, x1 - x0), 1);
    }
    for (size_t p = 0; p < inside.size(); ++p)
        if (!inside[p]) std::fill_n(image.pixels.begin() + static_cast<long>(4 * p), 4, 0);
}

// A window nobody redirects has no pixmap of its own, and where it is covered
// its pixels are lost. Redirected now, it gets one; every window in it is then
// told to repaint all of itself (a cleared area with exposures), and the
// picture is read once drawing into it has paused.
std::optional<Image> WindowPixels::fromBriefRedirection(xcb_window_t frame, xcb_visualid_t visual) {
    if (!conn_.check(xcb_composite_redirect_window_checked(conn_.raw(), frame, XCB_COMPOSITE_REDIRECT_AUTOMATIC)))
        return std::nullopt;
    uint32_t damage = 0;
    if (damageEventBase_ != 0) {
        damage = xcb_generate_id(conn_.raw());
        xcb_damage_create(conn_.raw(), damage, frame, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    }
    askForRepaint(frame, 0);
    conn_.sync();
    if (damage != 0) waitForRepaint(damage);
    auto image = fromPixmap(frame, visual);
    if (damage != 0) xcb_damage_destroy(conn_.raw(), damage);
    xcb_composite_unredirect_window(conn_.raw(), frame, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    conn_.sync();
    return image;
}

void WindowPixels::askForRepaint(xcb_window_t window, int depth) {
    xcb_clear_area(conn_.raw(), 1, window, 0, 0, 0, 0);
    if (depth == kRepaintDepth) return;
    auto tree = conn_.get(xcb_query_tree_reply, xcb_query_tree(conn_.raw(), window));
    if (!tree) return;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) askForRepaint(children[i], depth + 1);
}

// Waits for the first drawing into the window, then for a pause in it.
void WindowPixels::waitForRepaint(uint32_t damage) {
    const auto isOurs = [&](const xcb_generic_event_t& e) {
        return (e.response_type & 0x7f) == damageEventBase_ + XCB_DAMAGE_NOTIFY &&
               reinterpret_cast<const xcb_damage_notify_event_t&>(e).damage == damage;
    };
    const auto until = std::chrono::steady_clock::now() + kRepaintStart;
    bool drawn = conn_.waitForEvent(isOurs, kRepaintStart);
    while (drawn && std::chrono::steady_clock::now() < until) {
        xcb_damage_subtract(conn_.raw(), damage, XCB_NONE, XCB_NONE);
        xcb_flush(conn_.raw());
        drawn = conn_.waitForEvent(isOurs, kRepaintQuiet);
    }
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
