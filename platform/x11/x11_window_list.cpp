#include "platform/x11/x11_window_list.h"

#include <algorithm>
#include <deque>

#include "platform/x11/client_identity.h"
#include "platform/x11/no_capture_mark.h"
#include "platform/x11/window_role.h"

namespace pv::x11 {
namespace {

constexpr int kClientSearchDepth = 3;

// The window a running window manager names as its own; nullopt without one.
std::optional<xcb_window_t> windowManagerCheckWindow(X11Connection& conn) {
    const xcb_atom_t check = conn.atom("_NET_SUPPORTING_WM_CHECK");
    auto onRoot = conn.readCardinals(conn.root(), check, XCB_ATOM_WINDOW);
    if (!onRoot || onRoot->empty()) return std::nullopt;
    // A manager that died leaves the root property behind; its check window goes with it.
    auto onChild = conn.readCardinals((*onRoot)[0], check, XCB_ATOM_WINDOW);
    if (!onChild || onChild->empty() || (*onChild)[0] != (*onRoot)[0]) return std::nullopt;
    return (*onRoot)[0];
}

std::vector<xcb_window_t> childrenOf(X11Connection& conn, xcb_window_t w) {
    auto tree = conn.get(xcb_query_tree_reply, xcb_query_tree(conn.raw(), w));
    if (!tree) return {};
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    return {children, children + xcb_query_tree_children_length(tree.get())};
}

bool hasWmState(X11Connection& conn, xcb_window_t w) {
    const xcb_atom_t wmState = conn.atom("WM_STATE");
    auto r = conn.get(xcb_get_property_reply, xcb_get_property(conn.raw(), 0, w, wmState, wmState, 0, 0));
    return r && r->type == wmState;
}

// The ICCCM way to find the client in a frame: the nearest window with WM_STATE.
std::optional<xcb_window_t> clientInFrame(X11Connection& conn, xcb_window_t frame) {
    std::deque<std::pair<xcb_window_t, int>> queue{{frame, 0}};
    while (!queue.empty()) {
        auto [w, depth] = queue.front();
        queue.pop_front();
        if (hasWmState(conn, w)) return w;
        if (depth == kClientSearchDepth) continue;
        for (xcb_window_t child : childrenOf(conn, w)) queue.emplace_back(child, depth + 1);
    }
    return std::nullopt;
}

std::vector<std::string> atomNames(X11Connection& conn, xcb_window_t w, const char* property) {
    std::vector<std::string> names;
    if (auto atoms = conn.readCardinals(w, conn.atom(property), XCB_ATOM_ATOM))
        for (uint32_t a : *atoms) names.push_back(conn.knownAtomName(a));
    return names;
}

std::string latin1ToUtf8(const std::string& text) {
    std::string out;
    for (unsigned char ch : text) {
        if (ch < 0x80) {
            out.push_back(static_cast<char>(ch));
        } else {
            out.push_back(static_cast<char>(0xC0 | (ch >> 6)));
            out.push_back(static_cast<char>(0x80 | (ch & 0x3F)));
        }
    }
    return out;
}

std::optional<std::string> readTitle(X11Connection& conn, xcb_window_t client) {
    if (auto name = conn.readBytes(client, conn.atom("_NET_WM_NAME"), conn.atom("UTF8_STRING"))) return name;
    xcb_atom_t type = XCB_ATOM_NONE;
    auto name = conn.readBytes(client, XCB_ATOM_WM_NAME, XCB_ATOM_ANY, &type);
    if (!name) return std::nullopt;
    return type == XCB_ATOM_STRING ? latin1ToUtf8(*name) : *name;
}

// WM_CLASS holds "instance\0class\0"; the class part names the application.
std::optional<std::string> readClassName(X11Connection& conn, xcb_window_t client) {
    auto value = conn.readBytes(client, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    if (!value) return std::nullopt;
    const size_t split = value->find('\0');
    if (split == std::string::npos) return std::nullopt;
    std::string className = value->substr(split + 1);
    if (const size_t end = className.find('\0'); end != std::string::npos) className.resize(end);
    if (className.empty()) return std::nullopt;
    return className;
}

std::optional<WindowListEntry> readEntry(X11Connection& conn, const TopLevel& top, const DesktopLayout& layout,
                                         bool hasXRes) {
    auto geometry = conn.get(xcb_get_geometry_reply, xcb_get_geometry(conn.raw(), top.frame));
    if (!geometry) return std::nullopt;
    const WindowRole role =
        windowRole(atomNames(conn, top.client, "_NET_WM_WINDOW_TYPE"), atomNames(conn, top.client, "_NET_WM_STATE"));

    WindowListEntry e;
    e.number = top.client;
    e.sharingState = hasNoCaptureMark(conn, top.client) ? 0 : 1;
    e.layer = role.layer;
    e.ownerPID = windowOwnerPid(conn, top.client, hasXRes);
    e.title = role.title ? role.title : readTitle(conn, top.client);
    e.ownerName = role.owner ? role.owner : readClassName(conn, top.client);
    if (!e.ownerName) e.ownerName = processName(e.ownerPID);
    const int32_t border = 2 * geometry->border_width;
    e.bounds = layout.toPoints(geometry->x, geometry->y, geometry->width + border, geometry->height + border);
    return e;
}

}  // namespace

std::vector<TopLevel> viewableTopLevels(X11Connection& conn) {
    const std::optional<xcb_window_t> manager = windowManagerCheckWindow(conn);
    std::vector<xcb_window_t> stack = childrenOf(conn, conn.root());  // bottom first
    std::reverse(stack.begin(), stack.end());

    std::vector<xcb_get_window_attributes_cookie_t> cookies;
    for (xcb_window_t w : stack) cookies.push_back(xcb_get_window_attributes(conn.raw(), w));

    std::vector<TopLevel> tops;
    for (size_t i = 0; i < stack.size(); ++i) {
        auto attributes = conn.get(xcb_get_window_attributes_reply, cookies[i]);
        if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
            attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT || stack[i] == manager)
            continue;
        std::optional<xcb_window_t> client = manager ? clientInFrame(conn, stack[i]) : stack[i];
        if (!client && attributes->override_redirect) client = stack[i];
        if (client) tops.push_back({stack[i], *client});
    }
    return tops;
}

std::optional<xcb_window_t> frameOf(X11Connection& conn, xcb_window_t window) {
    xcb_window_t w = window;
    for (;;) {
        auto tree = conn.get(xcb_query_tree_reply, xcb_query_tree(conn.raw(), w));
        if (!tree) return std::nullopt;
        if (tree->parent == conn.root() || tree->parent == XCB_NONE) return w;
        w = tree->parent;
    }
}

std::vector<WindowListEntry> readWindowList(X11Connection& conn, const DesktopLayout& layout, bool hasXRes) {
    std::vector<WindowListEntry> entries;
    for (const TopLevel& top : viewableTopLevels(conn))
        if (auto e = readEntry(conn, top, layout, hasXRes)) entries.push_back(std::move(*e));
    return entries;
}

}  // namespace pv::x11
