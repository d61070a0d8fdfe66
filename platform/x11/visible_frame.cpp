#include "platform/x11/visible_frame.h"

namespace pv::x11 {
namespace {

std::optional<FrameExtents> readExtents(X11Connection& conn, xcb_window_t window, const char* property) {
    auto values = conn.readCardinals(window, conn.atom(property), XCB_ATOM_CARDINAL);
    if (!values || values->size() < 4) return std::nullopt;
    return FrameExtents{(*values)[0], (*values)[1], (*values)[2], (*values)[3]};
}

// Extents beyond any real window size are garbage, not a frame.
bool plausible(const FrameExtents& e) {
    constexpr uint32_t kLimit = 1u << 15;
    return e.left < kLimit && e.right < kLimit && e.top < kLimit && e.bottom < kLimit;
}

}  // namespace

RootBox visibleFrame(const RootBox& topLevel, const RootBox& client, const std::optional<FrameExtents>& managerExtents,
                     const std::optional<FrameExtents>& clientMargins) {
    RootBox visible = topLevel;
    if (clientMargins && plausible(*clientMargins)) {
        const auto& m = *clientMargins;
        visible = {client.x + int32_t(m.left), client.y + int32_t(m.top), client.width - int32_t(m.left + m.right),
                   client.height - int32_t(m.top + m.bottom)};
        if (managerExtents && plausible(*managerExtents)) {
            const auto& e = *managerExtents;
            visible = {visible.x - int32_t(e.left), visible.y - int32_t(e.top),
                       visible.width + int32_t(e.left + e.right), visible.height + int32_t(e.top + e.bottom)};
        }
    } else if (managerExtents && plausible(*managerExtents)) {
        const auto& e = *managerExtents;
        visible = {client.x - int32_t(e.left), client.y - int32_t(e.top), client.width + int32_t(e.left + e.right),
                   client.height + int32_t(e.top + e.bottom)};
    }
    const RootBox inside = visible.intersection(topLevel);
    return inside.isEmpty() ? topLevel : inside;
}

RootRects readRootRects(X11Connection& conn, const std::vector<xcb_window_t>& windows) {
    std::vector<std::pair<xcb_get_geometry_cookie_t, xcb_translate_coordinates_cookie_t>> cookies;
    for (xcb_window_t w : windows)
        cookies.emplace_back(xcb_get_geometry(conn.raw(), w),
                             xcb_translate_coordinates(conn.raw(), w, conn.root(), 0, 0));
    RootRects rects;
    for (size_t i = 0; i < windows.size(); ++i) {
        auto geometry = conn.get(xcb_get_geometry_reply, cookies[i].first);
        auto at = conn.get(xcb_translate_coordinates_reply, cookies[i].second);
        if (!geometry || !at) {
            rects[windows[i]] = std::nullopt;
            continue;
        }
        // Translated coordinates are those of the inside corner; the border lies around it.
        const int32_t border = geometry->border_width;
        rects[windows[i]] = RootBox{at->dst_x - border, at->dst_y - border, geometry->width + 2 * border,
                                    geometry->height + 2 * border};
    }
    return rects;
}

std::optional<RootBox> readRootRect(X11Connection& conn, xcb_window_t window) {
    return readRootRects(conn, {window})[window];
}

std::optional<RootBox> readVisibleFrame(X11Connection& conn, xcb_window_t topLevel, xcb_window_t client,
                                        const RootRects& known) {
    const auto rectOf = [&](xcb_window_t w) {
        const auto it = known.find(w);
        return it != known.end() ? it->second : readRootRect(conn, w);
    };
    auto outer = rectOf(topLevel);
    if (!outer) return std::nullopt;
    if (client == topLevel) {
        // Not reparented: only the client's own margins can say more.
        return visibleFrame(*outer, *outer, std::nullopt, readExtents(conn, client, "_GTK_FRAME_EXTENTS"));
    }
    auto inner = rectOf(client);
    if (!inner) return std::nullopt;
    return visibleFrame(*outer, *inner, readExtents(conn, client, "_NET_FRAME_EXTENTS"),
                        readExtents(conn, client, "_GTK_FRAME_EXTENTS"));
}

}  // namespace pv::x11
