// The desktop matrix: real window managers and compositors from Debian with
// real GTK and Xt clients, each case on an Xvfb of its own. What the window
// server reports is held against programs that share no code with it:
// every listed window against the visible frame xwininfo and xprop describe,
// its picture against xwd's dump of its frame, the order against the
// manager's _NET_CLIENT_LIST_STACKING. Then `plenavue capture` writes the
// desktop into a PSD, and psd-tools' reading of it is held against the same
// windows and the desktop picture.
#include <gtest/gtest.h>
#include <xcb/composite.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <set>
#include <thread>

#include "platform/drop_shadow.h"
#include "platform/x11/x11_window_server.h"
#include "tests/support/psd_tools.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

struct Client {
    std::string title;
    std::vector<std::string> argv;
};

// An Xt client (xlogo, xeyes, xclock, xterm, or a fullscreen xterm) or a
// still GTK window of gtk_window.py (gtk3, gtk4, dock, popup) of that size.
Client client(const std::string& kind, const std::string& title, int x, int y, int width = 360, int height = 240) {
    const std::string at = "+" + std::to_string(x) + "+" + std::to_string(y);
    if (kind == "xlogo") return {title, {"xlogo", "-geometry", "200x150" + at, "-title", title}};
    // Rectangular: outside a shaped window's shape its pixmap holds nothing defined.
    if (kind == "xeyes") return {title, {"xeyes", "+shape", "-geometry", "150x100" + at, "-title", title}};
    if (kind == "xclock")  // a digital clock whose text never changes
        return {title, {"xclock", "-digital", "-strftime", "plenavue", "-geometry", "180x40" + at, "-title", title}};
    if (kind == "xterm" || kind == "fullscreen")
        return {title,
                {"xterm", kind == "fullscreen" ? "-fullscreen" : "+fullscreen", "-geometry", "40x6" + at, "-title",
                 title, "-e", "sh", "-c", "echo a still terminal; exec sleep 600"}};
    return {title,
            {"/usr/bin/python3", std::string(PV_SOURCE_DIR) + "/tests/desktops/gtk_window.py", kind, title,
             std::to_string(x), std::to_string(y), std::to_string(width), std::to_string(height)}};
}

// Xt and GTK clients that every window-manager case opens.
std::vector<Client> everyKind() {
    return {client("xlogo", "logo", 40, 60),      client("xeyes", "eyes", 300, 60),
            client("xclock", "clock", 500, 60),   client("xterm", "terminal", 40, 300),
            client("gtk3", "gtk three", 720, 60), client("gtk4", "gtk four", 720, 420)};
}

std::vector<Client> withPopUp() {
    std::vector<Client> clients = everyKind();
    clients.push_back(client("popup", "menu", 1150, 100, 160, 120));
    return clients;
}

struct Desktop {
    explicit Desktop(const XvfbOptions& options) : session(options) {
        server = X11WindowServer::connect(session.display(), &error);
    }
    XvfbSession session;
    std::unique_ptr<X11WindowServer> server;
    std::string error;
};

struct DesktopCase {
    std::string name;
    XvfbOptions options;
    std::vector<Client> clients = everyKind();
    double scale = 1;
    bool hideSome = true;  // open one window to minimise and one to move to another desktop
    // False where the compositor paints the decorations into the scene only
    // (kwin): the screen then shows title bars that no window's pixels hold.
    bool framesHoldDecorations = true;
    // Corner squares where the screen may differ from the frame: marco's
    // compositor rounds the corners of frames that are not shaped.
    int roundedCorners = 0;
    std::string front{};                      // the frontmost window's title, where one is known
    int docks = -1;                           // how many system windows (bars) there are, where known
    std::vector<ScreenRect> screens{};        // main first, where monitors are set
    std::function<void(Desktop&)> arrange{};  // after every client is up
};

// Test lists (and so ctest's names) show a case by its name.
void PrintTo(const DesktopCase& c, std::ostream* os) { *os << c.name; }

// The main monitor's top-left corner in root pixels: the origin of the points
// the window server reports.
Point mainOrigin(const XvfbOptions& options) {
    for (const MonitorSpec& m : options.monitors)
        if (m.ownsOutput) return {double(m.x), double(m.y)};
    return {0, 0};
}

Rect toPixels(const WindowRect& points, const XvfbOptions& options, double scale) {
    const Point o = mainOrigin(options);
    return {points.x * scale + o.x, points.y * scale + o.y, points.width * scale, points.height * scale};
}

// Pixels that differ in colour where our picture is opaque (and, with
// alphaToo, in alpha anywhere), leaving out squares of the given size in the
// four corners; -1 when the sizes differ. (xwd has no alpha: a depth-32
// window's pixels are compared as stored.)
long differingColour(const Image& ours, const Image& reference, int corner = 0, bool alphaToo = false) {
    if (ours.width != reference.width || ours.height != reference.height) return -1;
    long count = 0;
    for (int y = 0; y < ours.height; ++y) {
        const bool cornerRow = y < corner || y >= ours.height - corner;
        for (int x = 0; x < ours.width; ++x) {
            if (cornerRow && (x < corner || x >= ours.width - corner)) continue;
            const uint8_t* a = ours.row(y) + 4 * x;
            const uint8_t* b = reference.row(y) + 4 * x;
            if ((alphaToo && a[3] != b[3]) || (a[3] == 255 && !std::equal(a, a + 3, b))) ++count;
        }
    }
    return count;
}

uint32_t windowTitled(Desktop& d, const std::string& title) {
    const auto e = entryTitled(d.server->windowList(), title);
    if (!e) throw std::runtime_error("no window " + title);
    return e->number;
}

// Minimises one window and sends another to the second desktop, the way a
// taskbar or pager asks the manager to.
void hideTwo(Desktop& d, WindowManager manager) {
    if (manager == WindowManager::I3) {
        d.session.run({"i3-msg", "[title=\"^minimised$\"] move scratchpad"});
        d.session.run({"i3-msg", "[title=\"^elsewhere$\"] move to workspace 2"});
        return;
    }
    d.session.run({"xdotool", "windowminimize", "--sync", std::to_string(windowTitled(d, "minimised"))});
    if (std::stoi(d.session.run({"xdotool", "get_num_desktops"})) < 2) {
        d.session.run({"xdotool", "set_num_desktops", "2"});
        XvfbSession::waitFor([&] { return std::stoi(d.session.run({"xdotool", "get_num_desktops"})) >= 2; });
    }
    d.session.run({"xdotool", "set_desktop_for_window", std::to_string(windowTitled(d, "elsewhere")), "1"});
}

// Whether a window in front of list[i] overlaps it.
bool covered(const std::vector<WindowListEntry>& list, size_t i) {
    return std::any_of(list.begin(), list.begin() + long(i),
                       [&](const WindowListEntry& front) { return front.bounds.intersects(list[i].bounds); });
}

// xwd reads what the screen shows of a window, so only uncovered ones are compared.
void expectPicturesAsXwdSeesThem(Desktop& d, const DesktopCase& c, const std::vector<WindowListEntry>& list) {
    for (size_t i = 0; i < list.size(); ++i) {
        if (covered(list, i)) continue;
        const WindowListEntry& e = list[i];
        SCOPED_TRACE(e.title.value_or("(untitled)"));
        const xcb_window_t top = topLevelOf(d.session.connection(), e.number);
        const auto picture = d.server->windowPicture(std::nullopt, e.number, false);
        const auto dump = xwdPicture(d.session, top);
        ASSERT_TRUE(picture && dump);
        const Rect frame = toPixels(e.bounds, c.options, c.scale);
        const Rect outer = outerRectByTools(d.session, top);
        ASSERT_EQ(picture->width, frame.width);
        ASSERT_EQ(picture->height, frame.height);
        EXPECT_EQ(differingColour(
                      *picture,
                      cropped(*dump, int(frame.x - outer.x), int(frame.y - outer.y), picture->width, picture->height),
                      c.roundedCorners),
                  0);
        // Rounded corners aside, the visible frame is opaque: no shadow margin, no invisible border.
        long opaque = 0;
        for (size_t p = 3; p < picture->pixels.size(); p += 4) opaque += picture->pixels[p] == 255;
        EXPECT_GT(opaque, long(picture->width) * picture->height * 97 / 100);
    }
}

// The managed windows come in the manager's stacking order, and the layers
// put any grouping of the list back into it.
void expectStackingOrder(Desktop& d, const std::vector<WindowListEntry>& list) {
    const std::string text = d.session.run({"xprop", "-root", "_NET_CLIENT_LIST_STACKING"});
    std::vector<uint32_t> stacking, ours, managers;
    const std::regex hex("0x[0-9a-f]+");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), hex); it != std::sregex_iterator(); ++it)
        stacking.push_back(static_cast<uint32_t>(std::stoul(it->str(), nullptr, 16)));
    std::set<uint32_t> listed;
    for (const auto& e : list) {
        listed.insert(e.number);
        if (std::find(stacking.begin(), stacking.end(), e.number) != stacking.end()) ours.push_back(e.number);
    }
    for (auto it = stacking.rbegin(); it != stacking.rend(); ++it)
        if (listed.count(*it)) managers.push_back(*it);
    EXPECT_EQ(ours, managers);

    auto grouped = list;
    std::stable_sort(grouped.begin(), grouped.end(),
                     [](const auto& a, const auto& b) { return a.ownerPID < b.ownerPID; });
    std::stable_sort(grouped.begin(), grouped.end(), [](const auto& a, const auto& b) { return a.layer > b.layer; });
    for (size_t i = 0; i < list.size(); ++i) EXPECT_EQ(grouped[i].number, list[i].number) << "at " << i;
}

// The desktop as `plenavue capture` writes it (ungrouped, so that the layers
// are in stacking order), read by psd-tools: every listed window once, front
// to back, at its visible frame on the canvas (grown by the shadow's margins
// in pixels when framed), with its picture's pixels; and the layers,
// composed, make the merged image wherever they cover it.
void expectTheDocumentShowsTheDesktop(Desktop& d, const DesktopCase& c, const std::vector<WindowListEntry>& list,
                                      bool shadow) {
    const std::string path = ::testing::TempDir() + "pv-matrix-" + c.name + (shadow ? "-shadow" : "") + ".psd";
    d.session.run({PV_PLENAVUE, "capture", "-q", "--format", "ungrouped", "--keep-system",
                   shadow ? "--shadow" : "--no-shadow", "--file", path});
    const auto doc = psdToolsDump(path, true);
    std::remove(path.c_str());
    const auto desktop = d.server->desktopPicture();
    ASSERT_TRUE(desktop);
    EXPECT_EQ(doc["width"], desktop->width);
    EXPECT_EQ(doc["height"], desktop->height);
    auto layers = pixelLayersOf(doc);
    ASSERT_EQ(layers.size(), list.size()) << doc["layers"].dump().substr(0, 2000);
    std::reverse(layers.begin(), layers.end());  // front first, as the list
    // The canvas starts at the monitors' bounding box.
    Point origin{0, 0};
    for (size_t i = 0; i < c.options.monitors.size(); ++i) {
        const MonitorSpec& m = c.options.monitors[i];
        origin = i == 0 ? Point{double(m.x), double(m.y)}
                        : Point{std::min<double>(origin.x, m.x), std::min<double>(origin.y, m.y)};
    }
    for (size_t i = 0; i < list.size(); ++i) {
        const WindowListEntry& e = list[i];
        SCOPED_TRACE(e.title.value_or("(untitled)") + " as layer " + layers[i].name);
        const ShadowMargins m = shadow && e.ownerName != "Dock" ? dropShadowMargins(c.scale) : ShadowMargins{};
        const Rect frame = toPixels(e.bounds, c.options, c.scale);
        const int left = int(frame.x - origin.x), top = int(frame.y - origin.y);
        EXPECT_EQ((std::vector<int>{layers[i].left, layers[i].top, layers[i].right, layers[i].bottom}),
                  (std::vector<int>{left - m.left, top - m.top, left + int(frame.width) + m.right,
                                    top + int(frame.height) + m.bottom}));
        const auto picture = d.server->windowPicture(std::nullopt, e.number, false);
        ASSERT_TRUE(picture);
        const Image layer =
            premultipliedImage(layers[i].rgba, layers[i].right - layers[i].left, layers[i].bottom - layers[i].top);
        EXPECT_EQ(differingColour(*picture, cropped(layer, m.left, m.top, picture->width, picture->height), 0, true),
                  0);
    }
    if (shadow || !c.framesHoldDecorations) return;
    // Where the layers cover the canvas, they show what the merged image (the desktop picture) shows.
    const Image composed = composedLayers(doc);
    const Image merged =
        premultipliedImage(fromBase64(doc["merged"]["rgba"].get<std::string>()), desktop->width, desktop->height);
    const int r = c.roundedCorners;
    std::vector<Rect> corners;  // left out where the screen rounds frame corners
    for (const ReadLayer& l : layers)
        for (const auto& [x, y] :
             {std::pair{l.left, l.top}, {l.right - r, l.top}, {l.left, l.bottom - r}, {l.right - r, l.bottom - r}})
            corners.push_back({double(x), double(y), double(r), double(r)});
    long differing = 0;
    for (int y = 0; y < composed.height; ++y)
        for (int x = 0; x < composed.width; ++x) {
            const uint8_t* a = composed.row(y) + 4 * x;
            const uint8_t* b = merged.row(y) + 4 * x;
            const bool near = std::abs(a[0] - b[0]) <= 2 && std::abs(a[1] - b[1]) <= 2 && std::abs(a[2] - b[2]) <= 2;
            if (a[3] != 255 || near) continue;
            if (std::none_of(corners.begin(), corners.end(), [&](const Rect& q) {
                    return q.contains({x + 0.5, y + 0.5});
                }))
                ++differing;
        }
    EXPECT_EQ(differing, 0);
}

class DesktopMatrix : public ::testing::TestWithParam<DesktopCase> {};

TEST_P(DesktopMatrix, EveryWindowOnceAtItsVisibleFrameWithItsPixelsInStackingOrder) {
    const DesktopCase& c = GetParam();
    Desktop d(c.options);
    ASSERT_TRUE(d.server) << d.error;
    std::vector<Client> clients = c.clients;
    if (c.hideSome) {
        clients.push_back(client("xlogo", "minimised", 1100, 700));
        clients.push_back(client("xlogo", "elsewhere", 1350, 700));
    }
    std::vector<std::string> titles;
    for (const Client& client : clients) {
        d.session.start(client.argv);
        titles.push_back(client.title);
    }
    ASSERT_TRUE(waitForTitles(*d.server, titles));
    if (c.hideSome) {
        hideTwo(d, c.options.manager);
        EXPECT_TRUE(XvfbSession::waitFor([&] {
            const auto list = d.server->windowList();
            return !entryTitled(list, "minimised") && !entryTitled(list, "elsewhere");
        })) << "a minimised window or one on another desktop is still listed";
        titles.resize(titles.size() - 2);
    }
    if (c.arrange) c.arrange(d);
    // Managers animate what they hide in windows of their own: wait until the list holds still.
    std::vector<uint32_t> before;
    ASSERT_TRUE(XvfbSession::waitFor([&] {
        std::vector<uint32_t> now;
        for (const auto& e : d.server->windowList()) now.push_back(e.number);
        const bool still = now == before;
        before = now;
        if (!still) std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return still;
    }));
    for (const auto& e : d.server->windowList()) ASSERT_TRUE(waitUntilDrawn(*d.server, e.number)) << *e.title;

    const auto list = d.server->windowList();
    for (const std::string& title : titles)
        EXPECT_EQ(std::count_if(list.begin(), list.end(), [&](const auto& e) { return e.title == title; }), 1) << title;
    for (const auto& e : list) {
        SCOPED_TRACE(e.title.value_or("(untitled)"));
        // Nothing but our clients and the desktop's bars.
        if (std::find(titles.begin(), titles.end(), e.title.value_or("")) == titles.end()) {
            EXPECT_EQ(e.ownerName, "Dock");
        }
        const Rect frame = frameByTools(d.session, e.number);
        const Point o = mainOrigin(c.options);
        EXPECT_EQ(e.bounds, (WindowRect{(frame.x - o.x) / c.scale, (frame.y - o.y) / c.scale, frame.width / c.scale,
                                        frame.height / c.scale}));
    }
    if (!c.front.empty()) {
        EXPECT_EQ(list.front().title, c.front);
    }
    const auto docks = std::count_if(list.begin(), list.end(), [](const auto& e) { return e.ownerName == "Dock"; });
    if (c.docks >= 0) {
        EXPECT_EQ(docks, c.docks);
    }
    std::vector<ScreenRect> screens;
    for (const auto& screen : d.server->screenList()) {
        EXPECT_EQ(screen.backingScaleFactor, c.scale);
        screens.push_back(screen.frame);
    }
    if (!c.screens.empty()) {
        EXPECT_EQ(screens, c.screens);
    }
    expectPicturesAsXwdSeesThem(d, c, list);
    expectStackingOrder(d, list);
    expectTheDocumentShowsTheDesktop(d, c, list, false);
    // Above scale 1, points and pixels differ: framed layers must stand their
    // margins' pixels up and left of the window.
    if (c.scale != 1) expectTheDocumentShowsTheDesktop(d, c, list, true);
}

XvfbOptions managed(WindowManager manager, Compositor compositor = Compositor::None, std::string resources = "") {
    XvfbOptions o;
    o.manager = manager;
    o.compositor = compositor;
    o.resources = std::move(resources);
    return o;
}

XvfbOptions monitors(int width, int height, std::vector<MonitorSpec> monitors) {
    return XvfbOptions{width, height, true, std::move(monitors)};
}

// i3 tiles; in a tabbed layout its tab bar is a system window and the other
// tabs are covered windows.
void tabbed(Desktop& d) {
    d.session.run({"i3-msg", "layout tabbed"});
    ASSERT_TRUE(XvfbSession::waitFor([&] {
        const auto list = d.server->windowList();
        return std::count_if(list.begin(), list.end(), [](const auto& e) { return e.ownerName == "Dock"; }) == 2;
    }));
}

// A fullscreen window raised in front of a panel.
void raiseFullscreen(Desktop& d) {
    d.session.run({"xdotool", "windowactivate", "--sync", std::to_string(windowTitled(d, "full"))});
    ASSERT_TRUE(XvfbSession::waitFor([&] { return d.server->windowList().front().title == "full"; }));
}

std::string caseName(const ::testing::TestParamInfo<DesktopCase>& info) { return info.param.name; }

using W = WindowManager;
INSTANTIATE_TEST_SUITE_P(
    WindowManagers, DesktopMatrix,
    ::testing::Values(
        // A GTK pop-up menu (override-redirect) stands in front of everything.
        DesktopCase{.name = "openbox", .options = managed(W::Openbox), .clients = withPopUp(), .front = "menu"},
        DesktopCase{.name = "xfwm4_compositing", .options = managed(W::Xfwm4)},
        DesktopCase{.name = "metacity_compositing", .options = managed(W::Metacity)},
        DesktopCase{.name = "marco_compositing", .options = managed(W::Marco), .roundedCorners = 5},
        DesktopCase{.name = "kwin", .options = managed(W::KWin), .framesHoldDecorations = false},
        DesktopCase{.name = "fluxbox", .options = managed(W::Fluxbox), .docks = 1},  // its own toolbar
        DesktopCase{.name = "openbox_picom", .options = managed(W::Openbox, Compositor::Picom)},
        DesktopCase{.name = "openbox_xcompmgr", .options = managed(W::Openbox, Compositor::Xcompmgr)},
        DesktopCase{.name = "i3_tabbed",
                    .options = managed(W::I3),
                    .clients = {client("xlogo", "logo", 0, 0), client("xterm", "terminal", 0, 0),
                                client("gtk3", "gtk three", 0, 0, 300, 200)},
                    .docks = 2,
                    .arrange = tabbed}),
    caseName);

// Xvfb screens whose RandR monitors stand stacked, offset and in a grid, the
// main one not at the top-left corner; one window on each and one across two.
INSTANTIATE_TEST_SUITE_P(
    Monitors, DesktopMatrix,
    ::testing::Values(
        DesktopCase{.name = "three_stacked",
                    .options = monitors(1280, 2160,
                                        {{"TOP", 0, 0, 1280, 720, false},
                                         {"MIDDLE", 0, 720, 1280, 720, true},
                                         {"BOTTOM", 0, 1440, 1280, 720, false}}),
                    .clients = {client("xlogo", "top", 100, 100), client("xlogo", "middle", 100, 820),
                                client("xeyes", "bottom", 300, 1600), client("xterm", "across", 600, 1380)},
                    .hideSome = false,
                    .screens = {{0, 0, 1280, 720}, {0, 720, 1280, 720}, {0, -720, 1280, 720}}},
        DesktopCase{.name = "three_offset",
                    .options = monitors(3904, 1324,
                                        {{"LEFT", 0, 300, 1600, 900, false},
                                         {"MAIN", 1600, 0, 1280, 1024, true},
                                         {"RIGHT", 2880, 556, 1024, 768, false}}),
                    .clients = {client("xlogo", "left", 100, 500), client("xlogo", "main", 1700, 100),
                                client("xeyes", "right", 3000, 800), client("xterm", "across", 1500, 700)},
                    .hideSome = false,
                    .screens = {{0, 0, 1280, 1024}, {-1600, -176, 1600, 900}, {1280, -300, 1024, 768}}},
        DesktopCase{
            .name = "four_grid",
            .options = monitors(2560, 1600,
                                {{"NW", 0, 0, 1280, 800, false},
                                 {"NE", 1280, 0, 1280, 800, false},
                                 {"SW", 0, 800, 1280, 800, false},
                                 {"SE", 1280, 800, 1280, 800, true}}),
            .clients = {client("xlogo", "nw", 100, 100), client("xlogo", "ne", 1400, 100),
                        client("xeyes", "sw", 100, 900), client("xclock", "se", 1400, 900),
                        client("xterm", "across", 1150, 700)},
            .hideSome = false,
            .screens = {{0, 0, 1280, 800}, {-1280, 800, 1280, 800}, {-1280, 0, 1280, 800}, {0, 800, 1280, 800}}}),
    caseName);

// A fullscreen window in front of a panel; at 192 dpi (scale 2) and at a
// font-only 120 dpi (scale 1).
INSTANTIATE_TEST_SUITE_P(
    Special, DesktopMatrix,
    ::testing::Values(DesktopCase{.name = "fullscreen_over_panel",
                                  .options = managed(W::Openbox),
                                  .clients = {client("dock", "panel", 0, 0, 1600, 32), client("xlogo", "logo", 40, 100),
                                              client("fullscreen", "full", 300, 300)},
                                  .hideSome = false,
                                  .front = "full",
                                  .docks = 1,
                                  .arrange = raiseFullscreen},
                      DesktopCase{.name = "hidpi_192",
                                  .options = managed(W::Openbox, Compositor::None, "Xft.dpi:\t192\n"),
                                  .clients = {client("xlogo", "logo", 41, 61), client("xterm", "terminal", 300, 301),
                                              client("gtk3", "gtk three", 700, 100)},
                                  .scale = 2,
                                  .hideSome = false},
                      DesktopCase{.name = "font_dpi_120",
                                  .options = managed(W::Openbox, Compositor::None, "Xft.dpi:\t120\n"),
                                  .clients = {client("xlogo", "logo", 41, 61), client("xterm", "terminal", 300, 301)},
                                  .hideSome = false}),
    caseName);

// picom --unredir-if-possible takes every window out of redirection while a
// fullscreen window is up: the window behind it still comes whole, and is
// left unredirected as picom wants it.
TEST(UnredirectingCompositor, ACoveredWindowIsCapturedWhole) {
    Desktop d(managed(W::Openbox, Compositor::PicomUnredirect));
    ASSERT_TRUE(d.server) << d.error;
    d.session.start(client("xlogo", "logo", 40, 60).argv);
    d.session.start(client("xterm", "terminal", 400, 60).argv);
    ASSERT_TRUE(waitForTitles(*d.server, {"logo", "terminal"}));
    const uint32_t logo = windowTitled(d, "logo");
    ASSERT_TRUE(waitUntilDrawn(*d.server, logo));
    const auto uncovered = d.server->windowPicture(std::nullopt, logo, false);
    ASSERT_TRUE(uncovered);

    xcb_connection_t* c = d.session.connection();
    const xcb_window_t frame = topLevelOf(c, logo);
    const auto redirected = [&] {
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        xcb_generic_error_t* error = xcb_request_check(c, xcb_composite_name_window_pixmap_checked(c, frame, pixmap));
        const bool named = error == nullptr;
        free(error);
        if (named) xcb_free_pixmap(c, pixmap);
        return named;
    };
    ASSERT_TRUE(redirected());
    d.session.start(client("fullscreen", "full", 0, 0).argv);
    ASSERT_TRUE(waitForTitles(*d.server, {"full"}));
    ASSERT_TRUE(XvfbSession::waitFor([&] { return !redirected(); })) << "picom kept the windows redirected";
    for (int twice = 0; twice < 2; ++twice) {
        const auto covered = d.server->windowPicture(std::nullopt, logo, false);
        ASSERT_TRUE(covered);
        EXPECT_EQ(differingPixels(*covered, *uncovered), 0);
        EXPECT_FALSE(redirected());
    }
}

}  // namespace
}  // namespace pv::test
