#include "platform/x11/x11_window_list.h"

#include <algorithm>
#include <deque>

#include "platform/unicode_text.h"
#include "platform/x11/client_identity.h"
#include "platform/x11/no_capture_mark.h"
#include "platform/x11/text_property.h"
#include "platform/x11/visible_frame.h"
#include "platform/x11/window_role.h"

namespace pv::x11 {
namespace {

constexpr int kClientSearchDepth = 3;
constexpr uint32_t kNormalState = 1;           // ICCCM: the window is shown
constexpr uint32_t kAllDesktops = 0xFFFFFFFF;  // EWMH: sticky

// Every property the listing reads of a top-level window or its client.
const char* const kListedProperties[] = {
    "_NET_WM_DESKTOP",    "WM_CLASS",           "_NET_WM_WINDOW_TYPE", "_NET_WM_STATE", "_NET_WM_NAME",     "WM_NAME",
    "_NET_FRAME_EXTENTS", "_GTK_FRAME_EXTENTS", "_GTK_APPLICATION_ID", "_NET_WM_PID",   kNoCaptureProperty,
};

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

struct FoundClient {
    xcb_window_t window = XCB_NONE;
    uint32_t state = 0;
};

// The state field of a WM_STATE reply; nullopt when the window has none.
std::optional<uint32_t> wmState(const xcb_get_property_reply_t* r, xcb_atom_t wmStateAtom) {
    if (!r || r->type != wmStateAtom) return std::nullopt;
    if (r->format != 32 || xcb_get_property_value_length(r) < 4) return 0;
    return static_cast<const uint32_t*>(xcb_get_property_value(r))[0];
}

// The ICCCM way to find the client in a frame: the nearest window with
// WM_STATE, breadth first. Every frame is searched at once, a level at a
// time, so that a listing costs a few round trips instead of two a window.
std::vector<std::optional<FoundClient>> clientsInFrames(X11Connection& conn, const std::vector<xcb_window_t>& frames) {
    struct Node {
        size_t frame;
        xcb_window_t window;
    };
    std::vector<std::optional<FoundClient>> found(frames.size());
    std::vector<Node> level;
    for (size_t i = 0; i < frames.size(); ++i) level.push_back({i, frames[i]});
    const xcb_atom_t wmStateAtom = conn.atom("WM_STATE");
    for (int depth = 0; !level.empty(); ++depth) {
        const bool deeper = depth < kClientSearchDepth;
        std::vector<xcb_get_property_cookie_t> states;
        std::vector<xcb_query_tree_cookie_t> trees;
        for (const Node& n : level) {
            states.push_back(xcb_get_property(conn.raw(), 0, n.window, wmStateAtom, wmStateAtom, 0, 2));
            if (deeper) trees.push_back(xcb_query_tree(conn.raw(), n.window));
        }
        std::vector<Node> next;
        for (size_t i = 0; i < level.size(); ++i) {
            // Every reply is taken, used or not, so none is left on the connection.
            const auto state = wmState(conn.get(xcb_get_property_reply, states[i]).get(), wmStateAtom);
            const auto tree = deeper ? conn.get(xcb_query_tree_reply, trees[i]) : nullptr;
            const Node& n = level[i];
            if (found[n.frame]) continue;
            if (state) {
                found[n.frame] = FoundClient{n.window, *state};
            } else if (tree) {
                const xcb_window_t* children = xcb_query_tree_children(tree.get());
                for (int c = 0; c < xcb_query_tree_children_length(tree.get()); ++c)
                    next.push_back({n.frame, children[c]});
            }
        }
        std::erase_if(next, [&](const Node& n) { return found[n.frame].has_value(); });
        level = std::move(next);
    }
    return found;
}

// Windows a client has on every desktop or on the one shown are on screen;
// so are all when the manager has no desktops.
bool onShownDesktop(X11Connection& conn, xcb_window_t client, std::optional<uint32_t> shownDesktop) {
    if (!shownDesktop) return true;
    auto desktop = conn.readCardinals(client, conn.atom("_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL);
    if (!desktop || desktop->empty()) return true;
    return (*desktop)[0] == kAllDesktops || (*desktop)[0] == *shownDesktop;
}

std::optional<uint32_t> shownDesktop(X11Connection& conn) {
    auto current = conn.readCardinals(conn.root(), conn.atom("_NET_CURRENT_DESKTOP"), XCB_ATOM_CARDINAL);
    if (!current || current->empty()) return std::nullopt;
    return (*current)[0];
}

// A WM_CLASS with some text in it, or any _NET_WM_WINDOW_TYPE.
bool hasClassOrType(X11Connection& conn, xcb_window_t w) {
    if (auto value = conn.readBytes(w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING))
        if (std::any_of(value->begin(), value->end(), [](char c) { return c != '\0'; })) return true;
    auto types = conn.readCardinals(w, conn.atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM);
    return types && !types->empty();
}

// Windows made over one connection share the bits outside the resource-id mask.
bool sameXClient(X11Connection& conn, xcb_window_t a, xcb_window_t b) {
    const uint32_t mask = xcb_get_setup(conn.raw())->resource_id_mask;
    return (a & ~mask) == (b & ~mask);
}

std::vector<std::string> atomNames(X11Connection& conn, xcb_window_t w, const char* property) {
    std::vector<std::string> names;
    if (auto atoms = conn.readCardinals(w, conn.atom(property), XCB_ATOM_ATOM))
        for (uint32_t a : *atoms) names.push_back(conn.knownAtomName(a));
    return names;
}

std::optional<std::string> readTitle(X11Connection& conn, xcb_window_t client) {
    // _NET_WM_NAME only as UTF8_STRING; of any other type, or empty, WM_NAME says it.
    if (auto name = conn.readBytes(client, conn.atom("_NET_WM_NAME"), conn.atom("UTF8_STRING")); name && !name->empty())
        return repairUtf8(*name);
    xcb_atom_t type = XCB_ATOM_NONE;
    auto name = conn.readBytes(client, XCB_ATOM_WM_NAME, XCB_ATOM_ANY, &type);
    if (!name) return std::nullopt;
    const TextEncoding encoding = type == XCB_ATOM_STRING              ? TextEncoding::Latin1
                                  : type == conn.atom("COMPOUND_TEXT") ? TextEncoding::CompoundText
                                                                       : TextEncoding::Utf8;
    return decodeTextProperty(*name, encoding);
}

// WM_CLASS holds "instance\0class\0"; the class part names the application.
struct WindowClass {
    std::string instance, className;
};

WindowClass readClass(X11Connection& conn, xcb_window_t client) {
    auto value = conn.readBytes(client, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    if (!value) return {};
    const size_t split = value->find('\0');
    if (split == std::string::npos) return {latin1ToUtf8(*value), {}};
    std::string className = value->substr(split + 1);
    if (const size_t end = className.find('\0'); end != std::string::npos) className.resize(end);
    return {latin1ToUtf8(value->substr(0, split)), latin1ToUtf8(className)};
}

// What people call the program behind a window, and its icon: its desktop
// entry's, else its class, else its process name.
void nameProgram(X11Connection& conn, xcb_window_t client, const WindowClass& windowClass,
                 const DesktopEntries* applications, WindowListEntry& e) {
    if (applications) {
        const ProgramIdentity program{
            repairUtf8(conn.readBytes(client, conn.atom("_GTK_APPLICATION_ID"), conn.atom("UTF8_STRING")).value_or("")),
            windowClass.instance, windowClass.className, processExecutable(e.ownerPID).value_or("")};
        if (const DesktopEntry* entry = applications->match(program)) {
            e.applicationName = entry->name;
            if (!entry->icon.empty()) e.applicationIcon = entry->icon;
            return;
        }
    }
    e.applicationName = !windowClass.className.empty() ? std::optional(windowClass.className) : processName(e.ownerPID);
}

WindowRole roleOf(X11Connection& conn, const TopLevel& top) {
    if (top.kind == TopLevelKind::WindowManagerBar) return windowManagerBarRole();
    return windowRole(atomNames(conn, top.client, "_NET_WM_WINDOW_TYPE"), atomNames(conn, top.client, "_NET_WM_STATE"),
                      top.kind == TopLevelKind::PopUp);
}

WindowListEntry readEntry(X11Connection& conn, const TopLevel& top, const DesktopLayout& layout, bool hasXRes,
                          const WindowRole& role, const DesktopEntries* applications) {
    WindowListEntry e;
    e.number = top.client;
    e.sharingState = hasNoCaptureMark(conn, top.client) ? 0 : 1;
    e.layer = role.layer;
    e.ownerPID = windowOwnerPid(conn, top.client, hasXRes);
    e.title = role.title ? role.title : readTitle(conn, top.client);
    const WindowClass windowClass = readClass(conn, top.client);
    // System windows keep the owner the inventory's rules know; every window
    // is shown under its real program's name.
    e.ownerName = role.owner                       ? role.owner
                  : !windowClass.className.empty() ? std::optional(windowClass.className)
                                                   : processName(e.ownerPID);
    nameProgram(conn, top.client, windowClass, applications, e);
    e.bounds = layout.toPoints(top.visible);
    return e;
}

bool meetsAMonitor(const RootBox& r, const std::vector<MonitorBox>& monitors) {
    return std::any_of(monitors.begin(), monitors.end(), [&](const MonitorBox& m) { return m.rect().intersects(r); });
}

bool coversAMonitor(const RootBox& r, const std::vector<MonitorBox>& monitors) {
    return std::any_of(monitors.begin(), monitors.end(), [&](const MonitorBox& m) { return r.contains(m.rect()); });
}

}  // namespace

std::vector<TopLevel> onScreenTopLevels(X11Connection& conn, const std::vector<MonitorBox>& monitors) {
    const std::optional<xcb_window_t> manager = windowManagerCheckWindow(conn);
    const std::optional<uint32_t> desktop = manager ? shownDesktop(conn) : std::nullopt;
    std::vector<xcb_window_t> stack = childrenOf(conn, conn.root());  // bottom first
    std::reverse(stack.begin(), stack.end());

    std::vector<xcb_get_window_attributes_cookie_t> cookies;
    for (xcb_window_t w : stack) cookies.push_back(xcb_get_window_attributes(conn.raw(), w));
    std::vector<TopLevel> candidates;
    for (size_t i = 0; i < stack.size(); ++i) {
        auto attributes = conn.get(xcb_get_window_attributes_reply, cookies[i]);
        if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
            attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT || stack[i] == manager)
            continue;
        candidates.push_back({stack[i], stack[i], TopLevelKind::Client, attributes->override_redirect != 0, {}});
    }

    std::vector<xcb_window_t> frames;
    for (const TopLevel& top : candidates) frames.push_back(top.frame);
    const auto clients = manager ? clientsInFrames(conn, frames) : std::vector<std::optional<FoundClient>>{};
    std::vector<xcb_window_t> windows = frames;
    for (const auto& client : clients)
        if (client) windows.push_back(client->window);
    std::vector<xcb_atom_t> properties;
    for (const char* name : kListedProperties) properties.push_back(conn.atom(name));
    conn.prefetchProperties(windows, properties);
    const RootRects rects = readRootRects(conn, windows);

    std::vector<TopLevel> tops;
    for (size_t i = 0; i < candidates.size(); ++i) {
        TopLevel top = candidates[i];
        if (manager) {
            if (const auto& client = clients[i]) {
                // Minimised windows that stay mapped, and those of other desktops, are not shown.
                if (client->state != kNormalState || !onShownDesktop(conn, client->window, desktop)) continue;
                top.client = client->window;
            } else if (sameXClient(conn, top.frame, *manager)) {
                top.kind = TopLevelKind::WindowManagerBar;
            } else if (top.overrideRedirect && hasClassOrType(conn, top.frame)) {
                top.kind = TopLevelKind::PopUp;
            } else {
                continue;
            }
        } else if (top.overrideRedirect) {
            if (!hasClassOrType(conn, top.frame)) continue;
            top.kind = TopLevelKind::PopUp;
        }
        auto visible = readVisibleFrame(conn, top.frame, top.client, rects);
        if (!visible || !meetsAMonitor(*visible, monitors)) continue;
        // A manager's window over a whole monitor is a guard or a background, not a bar.
        if (top.kind == TopLevelKind::WindowManagerBar && coversAMonitor(*visible, monitors)) continue;
        top.visible = *visible;
        tops.push_back(top);
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

std::optional<TopLevel> topLevelOf(X11Connection& conn, xcb_window_t number) {
    auto frame = frameOf(conn, number);
    if (!frame) return std::nullopt;
    auto visible = readVisibleFrame(conn, *frame, number);
    if (!visible) return std::nullopt;
    TopLevel top;
    top.frame = *frame;
    top.client = number;
    top.visible = *visible;
    return top;
}

std::vector<ListedWindow> readWindows(X11Connection& conn, const std::vector<MonitorBox>& monitors,
                                      const DesktopLayout& layout, bool hasXRes, const DesktopEntries* applications) {
    // The properties asked for in one go are dropped once read, or on the way out.
    struct ForgetPrefetched {
        X11Connection& conn;
        ~ForgetPrefetched() { conn.forgetPrefetched(); }
    } forget{conn};
    std::vector<ListedWindow> windows;
    std::vector<int32_t> kindLayers;
    for (const TopLevel& top : onScreenTopLevels(conn, monitors)) {
        const WindowRole role = roleOf(conn, top);
        windows.push_back({readEntry(conn, top, layout, hasXRes, role, applications), top});
        kindLayers.push_back(role.layer);
    }
    const std::vector<int32_t> levels = stackingLevels(kindLayers);
    for (size_t i = 0; i < windows.size(); ++i) windows[i].entry.layer = levels[i];
    return windows;
}

std::vector<WindowListEntry> readWindowList(X11Connection& conn, const std::vector<MonitorBox>& monitors,
                                            const DesktopLayout& layout, bool hasXRes,
                                            const DesktopEntries* applications) {
    std::vector<WindowListEntry> entries;
    for (ListedWindow& w : readWindows(conn, monitors, layout, hasXRes, applications))
        entries.push_back(std::move(w.entry));
    return entries;
}

}  // namespace pv::x11
