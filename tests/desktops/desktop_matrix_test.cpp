// The desktop matrix: real window managers and compositors from Debian with
// real GTK and Xt clients, each case on an Xvfb of its own. What the window
// server reports is held against programs that share no code with it:
// every listed window against the visible frame xwininfo and xprop describe,
// its picture against xwd's dump of its frame, the order against the
// manager's _NET_CLIENT_LIST_STACKING, the desktop picture against the
// windows' own pictures. Then `plenavue capture` writes the desktop into a
// PSD, and psd-tools' reading of it is held against the same windows.
#include <gtest/gtest.h>
#include <xcb/composite.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <thread>

#include "platform/drop_shadow.h"
#include "platform/png_io.h"
#include "platform/x11/x11_window_server.h"
#include "tests/support/psd_tools.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

const std::string kGtkWindow = std::string(PV_SOURCE_DIR) + "/tests/desktops/gtk_window.py";

struct Client {
    std::string title;
    std::vector<std::string> argv;
};

std::string geometry(int width, int height, int x, int y) {
    return std::to_string(width) + "x" + std::to_string(height) + "+" + std::to_string(x) + "+" + std::to_string(y);
}

Client xlogo(const std::string& title, int x, int y) {
    return {title, {"xlogo", "-geometry", geometry(200, 150, x, y), "-title", title}};
}
Client xeyes(const std::string& title, int x, int y) {
    // Rectangular: outside a shaped window's shape its pixmap holds nothing defined.
    return {title, {"xeyes", "+shape", "-geometry", geometry(150, 100, x, y), "-title", title}};
}
Client xclock(const std::string& title, int x, int y) {  // a digital clock whose text never changes
    return {title, {"xclock", "-digital", "-strftime", "plenavue", "-geometry", geometry(180, 40, x, y), "-title", title}};
}
Client xterm(const std::string& title, int x, int y, std::vector<std::string> more = {}) {
    std::vector<std::string> argv{"xterm", "-geometry", "40x6+" + std::to_string(x) + "+" + std::to_string(y), "-title",
                                  title};
    argv.insert(argv.end(), more.begin(), more.end());
    for (const char* a : {"-e", "sh", "-c", "echo a still terminal; exec sleep 600"}) argv.push_back(a);
    return {title, argv};
}
Client gtk(const std::string& kind, const std::string& title, int x, int y, int width, int height) {
    return {title, {"/usr/bin/python3", kGtkWindow, kind, title, std::to_string(x), std::to_string(y),
                    std::to_string(width), std::to_string(height)}};
}

// Xt and GTK clients that every window-manager case opens.
std::vector<Client> everyKind() {
    return {xlogo("logo", 40, 60),      xeyes("eyes", 300, 60),   xclock("clock", 500, 60),
            xterm("terminal", 40, 300), gtk("gtk3", "gtk three", 720, 60, 360, 240),
            gtk("gtk4", "gtk four", 720, 420, 360, 240)};
}

struct Desktop {
    explicit Desktop(const XvfbOptions& options) : session(options) {
        server = X11WindowServer::connect(session.display(), &error);
    }
    XvfbSession session;
    std::unique_ptr<X11WindowServer> server;
    std::string error;
};

using Expectation = std::function<void(Desktop&, const std::vector<WindowListEntry>&)>;

struct DesktopCase {
    std::string name;
    XvfbOptions options;
    std::vector<Client> clients;
    double scale = 1;
    bool hideSome = true;  // open one window to minimise and one to move to another desktop
    // False where the compositor paints the decorations into the scene only
    // (kwin): the screen then shows title bars that no window's pixels hold.
    bool framesHoldDecorations = true;
    // Corner squares where the screen may differ from the frame: marco's
    // compositor rounds the corners of frames that are not shaped.
    int roundedCorners = 0;
    std::function<void(Desktop&)> arrange;  // after every client is up
    Expectation expect;                     // checks of this case beyond the common ones
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

WindowRect toPoints(const Rect& px, const XvfbOptions& options, double scale) {
    const Point o = mainOrigin(options);
    return {(px.x - o.x) / scale, (px.y - o.y) / scale, px.width / scale, px.height / scale};
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

// Keeps both pictures of a failed comparison as PNG files beside the test's
// temporary files, and says where.
std::string keepForInspection(const std::string& name, const Image& ours, const Image& reference) {
    const std::string base = ::testing::TempDir() + "pv-matrix-" + name;
    for (const auto& [suffix, image] : {std::pair{"-ours.png", &ours}, std::pair{"-reference.png", &reference}}) {
        const auto bytes = encodePNG(*image);
        std::ofstream(base + suffix, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), long(bytes.size()));
    }
    return "pictures kept as " + base + "-{ours,reference}.png";
}

long opaquePixels(const Image& image) {
    long count = 0;
    for (size_t i = 3; i < image.pixels.size(); i += 4) count += image.pixels[i] == 255;
    return count;
}

std::vector<uint32_t> clientStacking(XvfbSession& session) {
    const std::string text = session.run({"xprop", "-root", "_NET_CLIENT_LIST_STACKING"});
    std::vector<uint32_t> ids;
    const std::regex hex("0x[0-9a-f]+");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), hex); it != std::sregex_iterator(); ++it)
        ids.push_back(static_cast<uint32_t>(std::stoul(it->str(), nullptr, 16)));
    return ids;
}

uint32_t windowTitled(Desktop& d, const std::string& title) {
    const auto e = entryTitled(d.server->windowList(), title);
    if (!e) throw std::runtime_error("no window " + title);
    return e->number;
}

// Minimises one window and sends another to the second desktop, the way a
// taskbar or pager asks the manager to.
void hideTwo(Desktop& d, WindowManager manager) {
    const std::string mini = std::to_string(windowTitled(d, "minimised"));
    const std::string away = std::to_string(windowTitled(d, "elsewhere"));
    if (manager == WindowManager::I3) {
        d.session.run({"i3-msg", "[title=\"^minimised$\"] move scratchpad"});
        d.session.run({"i3-msg", "[title=\"^elsewhere$\"] move to workspace 2"});
        return;
    }
    d.session.run({"xdotool", "windowminimize", "--sync", mini});
    if (std::stoi(d.session.run({"xdotool", "get_num_desktops"})) < 2) {
        d.session.run({"xdotool", "set_num_desktops", "2"});
        XvfbSession::waitFor([&] { return std::stoi(d.session.run({"xdotool", "get_num_desktops"})) >= 2; });
    }
    d.session.run({"xdotool", "set_desktop_for_window", away, "1"});
}

void expectEveryWindowAtItsVisibleFrame(Desktop& d, const DesktopCase& c, const std::vector<WindowListEntry>& list) {
    for (const WindowListEntry& e : list) {
        SCOPED_TRACE(e.title.value_or("(untitled)"));
        EXPECT_EQ(e.bounds, toPoints(frameByTools(d.session, e.number), c.options, c.scale));
    }
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
        const Image reference = cropped(*dump, static_cast<int>(frame.x - outer.x), static_cast<int>(frame.y - outer.y),
                                        picture->width, picture->height);
        const long differing = differingColour(*picture, reference, c.roundedCorners);
        EXPECT_EQ(differing, 0) << (differing != 0 ? keepForInspection(c.name + "-" + *e.title, *picture, reference) : "");
        // Rounded corners aside, the visible frame is opaque: no shadow margin, no invisible border.
        EXPECT_GT(opaquePixels(*picture), static_cast<long>(picture->width) * picture->height * 97 / 100);
    }
}

// The managed windows come in the manager's stacking order, and the layers
// put any grouping of the list back into it.
void expectStackingOrder(Desktop& d, const std::vector<WindowListEntry>& list) {
    const std::vector<uint32_t> stacking = clientStacking(d.session);
    std::set<uint32_t> listed;
    for (const auto& e : list) listed.insert(e.number);
    std::vector<uint32_t> ours, managers;
    for (const auto& e : list)
        if (std::find(stacking.begin(), stacking.end(), e.number) != stacking.end()) ours.push_back(e.number);
    for (auto it = stacking.rbegin(); it != stacking.rend(); ++it)
        if (listed.count(*it)) managers.push_back(*it);
    EXPECT_EQ(ours, managers);

    auto grouped = list;
    std::stable_sort(grouped.begin(), grouped.end(), [](const auto& a, const auto& b) { return a.ownerPID < b.ownerPID; });
    std::stable_sort(grouped.begin(), grouped.end(), [](const auto& a, const auto& b) { return a.layer > b.layer; });
    for (size_t i = 0; i < list.size(); ++i) EXPECT_EQ(grouped[i].number, list[i].number) << "at " << i;
}

// Where a window is in front of every other and wholly on the screen, the
// desktop picture shows its picture.
void expectDesktopPictureShowsTheWindows(Desktop& d, const DesktopCase& c, const std::vector<WindowListEntry>& list) {
    const auto desktop = d.server->desktopPicture();
    ASSERT_TRUE(desktop);
    EXPECT_EQ(desktop->width, c.options.width);
    EXPECT_EQ(desktop->height, c.options.height);
    const Rect screen{0, 0, double(c.options.width), double(c.options.height)};
    for (size_t i = 0; i < list.size(); ++i) {
        const Rect px = toPixels(list[i].bounds, c.options, c.scale);
        const bool inside = px.x >= 0 && px.y >= 0 && px.maxX() <= screen.width && px.maxY() <= screen.height;
        if (!inside || covered(list, i)) continue;
        SCOPED_TRACE(list[i].title.value_or("(untitled)"));
        const auto picture = d.server->windowPicture(std::nullopt, list[i].number, false);
        ASSERT_TRUE(picture);
        const Image seen = cropped(*desktop, int(px.x), int(px.y), picture->width, picture->height);
        const long differing = differingColour(*picture, seen, c.roundedCorners);
        EXPECT_EQ(differing, 0) << (differing != 0 ? keepForInspection(c.name + "-desktop-" + *list[i].title, *picture, seen) : "");
    }
}

// The monitors' bounding box: where the desktop picture, and so the
// document's canvas, starts in root pixels.
Point desktopOrigin(const XvfbOptions& options) {
    if (options.monitors.empty()) return {0, 0};
    Point origin{1e9, 1e9};
    for (const MonitorSpec& m : options.monitors) origin = {std::min<double>(origin.x, m.x), std::min<double>(origin.y, m.y)};
    return origin;
}

// The desktop as `plenavue capture` writes it (ungrouped, so that the layers
// are in stacking order), read by psd-tools.
nlohmann::json capturedDocument(Desktop& d, const DesktopCase& c, bool shadow) {
    const std::string path = ::testing::TempDir() + "pv-matrix-" + c.name + (shadow ? "-shadow" : "") + ".psd";
    d.session.run({PV_PLENAVUE, "capture", "-q", "--format", "ungrouped", "--keep-system",
                   shadow ? "--shadow" : "--no-shadow", "--file", path});
    auto doc = psdToolsDump(path, true);
    std::remove(path.c_str());
    return doc;
}

// Every listed window once, front to back, at its visible frame on the
// canvas (grown by the shadow's margins in pixels when framed), with its
// picture's pixels; and the layers, composed, make the merged image wherever
// they cover it.
void expectTheDocumentShowsTheDesktop(Desktop& d, const DesktopCase& c, const std::vector<WindowListEntry>& list,
                                      bool shadow) {
    const auto doc = capturedDocument(d, c, shadow);
    const auto desktop = d.server->desktopPicture();
    ASSERT_TRUE(desktop);
    EXPECT_EQ(doc["width"], desktop->width);
    EXPECT_EQ(doc["height"], desktop->height);
    auto layers = pixelLayersOf(doc);
    ASSERT_EQ(layers.size(), list.size()) << doc["layers"].dump().substr(0, 2000);
    std::reverse(layers.begin(), layers.end());  // front first, as the list
    const Point origin = desktopOrigin(c.options);
    const ShadowMargins none, margins = dropShadowMargins(c.scale);
    for (size_t i = 0; i < list.size(); ++i) {
        const WindowListEntry& e = list[i];
        SCOPED_TRACE(e.title.value_or("(untitled)") + " as layer " + layers[i].name);
        const bool framed = shadow && e.ownerName != "Dock";
        const ShadowMargins& m = framed ? margins : none;
        const Rect frame = toPixels(e.bounds, c.options, c.scale);
        const int left = static_cast<int>(frame.x - origin.x), top = static_cast<int>(frame.y - origin.y);
        EXPECT_EQ((std::vector<int>{layers[i].left, layers[i].top, layers[i].right, layers[i].bottom}),
                  (std::vector<int>{left - m.left, top - m.top, left + int(frame.width) + m.right,
                                    top + int(frame.height) + m.bottom}));
        const auto picture = d.server->windowPicture(std::nullopt, e.number, false);
        ASSERT_TRUE(picture);
        const Image layer = premultipliedImage(layers[i].rgba, layers[i].right - layers[i].left,
                                               layers[i].bottom - layers[i].top);
        const Image window = cropped(layer, m.left, m.top, picture->width, picture->height);
        const long differing = differingColour(*picture, window, 0, true);
        EXPECT_EQ(differing, 0) << (differing != 0 ? keepForInspection(c.name + "-layer-" + *e.title, *picture, window) : "");
    }
    if (shadow || !c.framesHoldDecorations) return;
    // Where the layers cover the canvas, they show what the merged image shows.
    const Image composed = composedLayers(doc);
    const Image merged = premultipliedImage(fromBase64(doc["merged"]["rgba"].get<std::string>()), desktop->width,
                                            desktop->height);
    std::vector<Rect> corners;  // left out where the screen rounds frame corners
    for (const ReadLayer& l : layers)
        for (const auto& [x, y] : {std::pair{l.left, l.top}, {l.right - c.roundedCorners, l.top},
                                   {l.left, l.bottom - c.roundedCorners},
                                   {l.right - c.roundedCorners, l.bottom - c.roundedCorners}})
            corners.push_back({double(x), double(y), double(c.roundedCorners), double(c.roundedCorners)});
    long differing = 0;
    for (int y = 0; y < composed.height; ++y)
        for (int x = 0; x < composed.width; ++x) {
            const uint8_t* a = composed.row(y) + 4 * x;
            const uint8_t* b = merged.row(y) + 4 * x;
            const bool near = std::abs(a[0] - b[0]) <= 2 && std::abs(a[1] - b[1]) <= 2 && std::abs(a[2] - b[2]) <= 2;
            if (a[3] != 255 || near) continue;
            if (std::none_of(corners.begin(), corners.end(), [&](const Rect& r) { return r.contains({x + 0.5, y + 0.5}); }))
                ++differing;
        }
    EXPECT_EQ(differing, 0) << (differing != 0 ? keepForInspection(c.name + "-merged", composed, merged) : "");
}

class DesktopMatrix : public ::testing::TestWithParam<DesktopCase> {};

TEST_P(DesktopMatrix, EveryWindowOnceAtItsVisibleFrameWithItsPixelsInStackingOrder) {
    const DesktopCase& c = GetParam();
    Desktop d(c.options);
    ASSERT_TRUE(d.server) << d.error;
    std::vector<Client> clients = c.clients;
    if (c.hideSome) {
        clients.push_back(xlogo("minimised", 1100, 700));
        clients.push_back(xlogo("elsewhere", 1350, 700));
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
    for (const auto& e : d.server->windowList())
        ASSERT_TRUE(waitUntilDrawn(*d.server, e.number)) << e.title.value_or("") << " of " << e.ownerName.value_or("") << " at " << rectToString(e.bounds);

    const auto list = d.server->windowList();
    for (const std::string& title : titles)
        EXPECT_EQ(std::count_if(list.begin(), list.end(), [&](const auto& e) { return e.title == title; }), 1) << title;
    for (const auto& e : list) {  // nothing but our clients and the desktop's bars
        if (std::find(titles.begin(), titles.end(), e.title.value_or("")) == titles.end()) {
            EXPECT_EQ(e.ownerName, "Dock") << e.title.value_or("(untitled)") << " " << e.ownerName.value_or("");
        }
    }
    expectEveryWindowAtItsVisibleFrame(d, c, list);
    expectPicturesAsXwdSeesThem(d, c, list);
    expectStackingOrder(d, list);
    if (c.framesHoldDecorations) expectDesktopPictureShowsTheWindows(d, c, list);
    for (const auto& screen : d.server->screenList()) EXPECT_EQ(screen.backingScaleFactor, c.scale);
    expectTheDocumentShowsTheDesktop(d, c, list, false);
    // Above scale 1, points and pixels differ: framed layers must stand their
    // margins' pixels up and left of the window.
    if (c.scale != 1) expectTheDocumentShowsTheDesktop(d, c, list, true);
    if (c.expect) c.expect(d, list);
}

XvfbOptions managed(WindowManager manager, Compositor compositor = Compositor::None) {
    XvfbOptions o;
    o.manager = manager;
    o.compositor = compositor;
    return o;
}

DesktopCase onManager(const std::string& name, XvfbOptions options) {
    return DesktopCase{name, std::move(options), everyKind(), 1, true, true, 0, {}, {}};
}

void expectFirst(const std::vector<WindowListEntry>& list, const std::string& title) {
    ASSERT_FALSE(list.empty());
    EXPECT_EQ(list.front().title, title);
}

std::vector<DesktopCase> windowManagerCases() {
    std::vector<DesktopCase> cases{
        onManager("openbox", managed(WindowManager::Openbox)),
        onManager("xfwm4_compositing", managed(WindowManager::Xfwm4)),
        onManager("metacity_compositing", managed(WindowManager::Metacity)),
        onManager("marco_compositing", managed(WindowManager::Marco)),  // index 3
        onManager("kwin", managed(WindowManager::KWin)),  // index 4
        onManager("fluxbox", managed(WindowManager::Fluxbox)),
        onManager("openbox_picom", managed(WindowManager::Openbox, Compositor::Picom)),
        onManager("openbox_xcompmgr", managed(WindowManager::Openbox, Compositor::Xcompmgr)),
    };
    // A GTK pop-up menu (override-redirect) stands in front of everything.
    cases[0].clients.push_back(gtk("popup", "menu", 1150, 100, 160, 120));
    cases[0].expect = [](Desktop&, const auto& list) { expectFirst(list, "menu"); };
    cases[3].roundedCorners = 5;
    cases[4].framesHoldDecorations = false;
    // fluxbox's own toolbar is a system window.
    cases[5].expect = [](Desktop&, const auto& list) {
        EXPECT_EQ(std::count_if(list.begin(), list.end(), [](const auto& e) { return e.ownerName == "Dock"; }), 1);
    };
    // i3 tiles; in a tabbed layout its tab bar is a system window and the
    // other tabs are covered windows.
    DesktopCase i3{"i3_tabbed", managed(WindowManager::I3), {xlogo("logo", 0, 0), xterm("terminal", 0, 0),
                                                             gtk("gtk3", "gtk three", 0, 0, 300, 200)},
                   1, true, true, 0, {}, {}};
    i3.arrange = [](Desktop& d) {
        d.session.run({"i3-msg", "layout tabbed"});
        ASSERT_TRUE(XvfbSession::waitFor([&] {
            const auto list = d.server->windowList();
            return std::count_if(list.begin(), list.end(), [](const auto& e) { return e.ownerName == "Dock"; }) == 2;
        }));
    };
    cases.push_back(i3);
    return cases;
}

// Xvfb screens whose RandR monitors stand stacked, offset and in a grid, the
// main one not at the top-left corner; one window on each and one across two.
DesktopCase monitorCase(const std::string& name, int width, int height, std::vector<MonitorSpec> monitors,
                        std::vector<Client> clients) {
    XvfbOptions o = managed(WindowManager::Openbox);
    o.width = width;
    o.height = height;
    o.monitors = std::move(monitors);
    DesktopCase c{name, o, std::move(clients), 1, false, true, 0, {}, {}};
    c.expect = [o](Desktop& d, const std::vector<WindowListEntry>& list) {
        const auto screens = d.server->screenList();
        ASSERT_EQ(screens.size(), o.monitors.size());
        // Main first, then left to right and top to bottom.
        std::vector<MonitorSpec> order = o.monitors;
        std::stable_sort(order.begin(), order.end(), [](const MonitorSpec& a, const MonitorSpec& b) {
            if (a.ownsOutput != b.ownsOutput) return a.ownsOutput;
            return std::tie(a.x, a.y) < std::tie(b.x, b.y);
        });
        const MonitorSpec& main = order.front();
        for (size_t i = 0; i < order.size(); ++i) {
            SCOPED_TRACE(order[i].name);
            const ScreenRect bottomUp{double(order[i].x - main.x),
                                      double(main.y + main.height - order[i].y - order[i].height),
                                      double(order[i].width), double(order[i].height)};
            EXPECT_EQ(screens[i].frame, bottomUp);
        }
        for (const auto& e : list) {
            SCOPED_TRACE(*e.title);
            const Rect px = toPixels(e.bounds, o, 1);
            std::vector<uint32_t> meeting;
            for (size_t i = 0; i < order.size(); ++i)
                if (Rect{double(order[i].x), double(order[i].y), double(order[i].width), double(order[i].height)}.intersects(px))
                    meeting.push_back(screens[i].displayId);
            EXPECT_EQ(d.server->displaysOfRect(e.bounds, 8), meeting);
            EXPECT_FALSE(meeting.empty());
        }
    };
    return c;
}

std::vector<DesktopCase> monitorCases() {
    return {
        monitorCase("three_stacked", 1280, 2160,
                    {{"TOP", 0, 0, 1280, 720, false}, {"MIDDLE", 0, 720, 1280, 720, true}, {"BOTTOM", 0, 1440, 1280, 720, false}},
                    {xlogo("top", 100, 100), xlogo("middle", 100, 820), xeyes("bottom", 300, 1600), xterm("across", 600, 1380)}),
        monitorCase("three_offset", 3904, 1324,
                    {{"LEFT", 0, 300, 1600, 900, false}, {"MAIN", 1600, 0, 1280, 1024, true}, {"RIGHT", 2880, 556, 1024, 768, false}},
                    {xlogo("left", 100, 500), xlogo("main", 1700, 100), xeyes("right", 3000, 800), xterm("across", 1500, 700)}),
        monitorCase("four_grid", 2560, 1600,
                    {{"NW", 0, 0, 1280, 800, false}, {"NE", 1280, 0, 1280, 800, false}, {"SW", 0, 800, 1280, 800, false},
                     {"SE", 1280, 800, 1280, 800, true}},
                    {xlogo("nw", 100, 100), xlogo("ne", 1400, 100), xeyes("sw", 100, 900), xclock("se", 1400, 900),
                     xterm("across", 1150, 700)}),
    };
}

// A fullscreen window in front of a panel; at 192 dpi (scale 2) and at a
// font-only 120 dpi (scale 1).
std::vector<DesktopCase> specialCases() {
    DesktopCase fullscreen{"fullscreen_over_panel", managed(WindowManager::Openbox),
                           {gtk("dock", "panel", 0, 0, 1600, 32), xlogo("logo", 40, 100),
                            xterm("full", 300, 300, {"-fullscreen"})},
                           1, false, true, 0, {}, {}};
    fullscreen.arrange = [](Desktop& d) {
        activateWindow(d.session.connection(), windowTitled(d, "full"));
        ASSERT_TRUE(XvfbSession::waitFor([&] { return d.server->windowList().front().title == "full"; }));
    };
    fullscreen.expect = [](Desktop&, const std::vector<WindowListEntry>& list) {
        expectFirst(list, "full");
        const auto panel = entryTitled(list, "panel");
        ASSERT_TRUE(panel);
        EXPECT_EQ(panel->ownerName, "Dock");
        EXPECT_GT(list.front().layer, panel->layer);
    };

    XvfbOptions hidpi = managed(WindowManager::Openbox);
    hidpi.resources = "Xft.dpi:\t192\n";
    DesktopCase retina{"hidpi_192", hidpi, {xlogo("logo", 41, 61), xterm("terminal", 300, 301), gtk("gtk3", "gtk three", 700, 100, 360, 240)},
                       2, false, true, 0, {}, {}};
    // With framing the picture grows by the shadow's margins in pixels, the
    // window itself untouched inside them.
    retina.expect = [](Desktop& d, const std::vector<WindowListEntry>& list) {
        const ShadowMargins margins = dropShadowMargins(2);
        for (const auto& e : list) {
            SCOPED_TRACE(*e.title);
            const auto plain = d.server->windowPicture(std::nullopt, e.number, false);
            const auto framed = d.server->windowPicture(std::nullopt, e.number, true);
            ASSERT_TRUE(plain && framed);
            EXPECT_EQ(plain->width, e.bounds.width * 2);
            ASSERT_EQ(framed->width, plain->width + margins.left + margins.right);
            ASSERT_EQ(framed->height, plain->height + margins.top + margins.bottom);
            EXPECT_EQ(differingColour(*plain, cropped(*framed, margins.left, margins.top, plain->width, plain->height)), 0);
        }
    };
    XvfbOptions fontDpi = managed(WindowManager::Openbox);
    fontDpi.resources = "Xft.dpi:\t120\n";
    DesktopCase fonts{"font_dpi_120", fontDpi, {xlogo("logo", 41, 61), xterm("terminal", 300, 301)}, 1, false, true, 0, {}, {}};
    return {fullscreen, retina, fonts};
}

std::string caseName(const ::testing::TestParamInfo<DesktopCase>& info) { return info.param.name; }


INSTANTIATE_TEST_SUITE_P(WindowManagers, DesktopMatrix, ::testing::ValuesIn(windowManagerCases()), caseName);
INSTANTIATE_TEST_SUITE_P(Monitors, DesktopMatrix, ::testing::ValuesIn(monitorCases()), caseName);
INSTANTIATE_TEST_SUITE_P(Special, DesktopMatrix, ::testing::ValuesIn(specialCases()), caseName);

// picom --unredir-if-possible takes every window out of redirection while a
// fullscreen window is up: the window behind it still comes whole, and is
// left unredirected as picom wants it.
TEST(UnredirectingCompositor, ACoveredWindowIsCapturedWhole) {
    Desktop d(managed(WindowManager::Openbox, Compositor::PicomUnredirect));
    ASSERT_TRUE(d.server) << d.error;
    d.session.start(xlogo("logo", 40, 60).argv);
    d.session.start(xterm("terminal", 400, 60).argv);
    ASSERT_TRUE(waitForTitles(*d.server, {"logo", "terminal"}));
    const uint32_t logo = windowTitled(d, "logo");
    ASSERT_TRUE(waitUntilDrawn(*d.server, logo));
    const xcb_window_t frame = topLevelOf(d.session.connection(), logo);
    const auto uncovered = d.server->windowPicture(std::nullopt, logo, false);
    ASSERT_TRUE(uncovered);

    xcb_connection_t* c = d.session.connection();
    const auto redirected = [&] {
        const xcb_pixmap_t pixmap = xcb_generate_id(c);
        xcb_generic_error_t* error = xcb_request_check(c, xcb_composite_name_window_pixmap_checked(c, frame, pixmap));
        const bool named = error == nullptr;
        free(error);
        if (named) xcb_free_pixmap(c, pixmap);
        return named;
    };
    ASSERT_TRUE(redirected());
    d.session.start(xterm("full", 0, 0, {"-fullscreen"}).argv);
    ASSERT_TRUE(waitForTitles(*d.server, {"full"}));
    ASSERT_TRUE(XvfbSession::waitFor([&] { return !redirected(); })) << "picom kept the windows redirected";

    const auto covered = d.server->windowPicture(std::nullopt, logo, false);
    ASSERT_TRUE(covered);
    EXPECT_EQ(differingPixels(*covered, *uncovered), 0);
    EXPECT_FALSE(redirected());
    const auto again = d.server->windowPicture(std::nullopt, logo, false);
    ASSERT_TRUE(again);
    EXPECT_EQ(differingPixels(*again, *uncovered), 0);
}

}  // namespace
}  // namespace pv::test
