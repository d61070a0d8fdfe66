// Rules of the X11 layer that need no X server: coordinates, visible frames,
// monitor order, EDID names, Xft.dpi, window roles and stacking levels, pixel
// formats and client numbers.
#include <gtest/gtest.h>

#include "platform/x11/client_identity.h"
#include "platform/x11/desktop_layout.h"
#include "platform/x11/edid_name.h"
#include "platform/x11/visible_frame.h"
#include "platform/x11/window_role.h"
#include "platform/x11/x11_screens.h"
#include "platform/x11/zpixmap_pixels.h"

namespace pv::x11 {
namespace {

// Points are root pixels over the scale from the main monitor's top-left;
// at whole scales every pixel edge maps to points and back exactly.
TEST(DesktopLayout, PointsAreRootPixelsOverTheScaleFromTheMainTopLeft) {
    const std::vector<MonitorBox> monitors{{5, 200, 100, 2880, 1800}};
    const DesktopLayout layout = layoutFor(monitors, 2.0);
    EXPECT_EQ(layout.toPoints(200, 100, 400, 300), (WindowRect{0, 0, 200, 150}));
    EXPECT_EQ(layout.toPoints(0, 0, 100, 100), (WindowRect{-100, -50, 50, 50}));
    EXPECT_EQ(screenEntries(monitors, 2.0)[0].frame, (ScreenRect{0, 0, 1440, 900}));
    EXPECT_EQ(screenEntries(monitors, 2.0)[0].backingScaleFactor, 2.0);
    // 200 + 20.5 rounded outward; right edge 200 + 121.5 -> 322.
    EXPECT_EQ(layout.toPixels(WindowRect{10.25, 20, 50.5, 10}), (RootBox{220, 140, 102, 20}));

    for (double scale : {1.0, 2.0, 3.0}) {
        const DesktopLayout whole = layoutFor({{1, 1921, 7, 3840, 2160}}, scale);
        for (const RootBox r : {RootBox{1921, 7, 1, 1}, RootBox{0, 0, 333, 77}, RootBox{2001, -13, 641, 479}})
            EXPECT_EQ(whole.toPixels(whole.toPoints(r)), r) << scale;
    }
}

// Client 200x150 at (50, 97) in a 252x239 frame at (24, 37): a manager whose
// frame is 26 px wider on each side than what it draws.
TEST(VisibleFrame, FollowsTheManagersExtentsAndTheClientsOwnMargins) {
    struct Case {
        const char* what;
        RootBox topLevel, client;
        std::optional<FrameExtents> manager, margins;
        RootBox expected;
    };
    const Case cases[] = {
        {"invisible border", {24, 37, 252, 239}, {50, 97, 200, 150}, FrameExtents{0, 0, 37, 0}, {}, {50, 60, 200, 187}},
        {"frame as drawn", {50, 60, 202, 175}, {51, 80, 200, 150}, FrameExtents{1, 1, 20, 5}, {}, {50, 60, 202, 175}},
        {"no extents", {10, 10, 300, 200}, {12, 30, 296, 178}, {}, {}, {10, 10, 300, 200}},
        {"client-side decorations",
         {274, 77, 452, 399},
         {274, 77, 452, 399},
         FrameExtents{0, 0, 0, 0},
         FrameExtents{26, 26, 23, 29},
         {300, 100, 400, 347}},
        {"unreparented client-side decorations",
         {274, 77, 452, 399},
         {274, 77, 452, 399},
         {},
         FrameExtents{26, 26, 23, 29},
         {300, 100, 400, 347}},
        {"extents past the frame",
         {50, 60, 202, 175},
         {51, 80, 200, 150},
         FrameExtents{40, 1, 20, 5},
         {},
         {50, 60, 202, 175}},
        {"margins larger than the window",
         {0, 0, 50, 50},
         {0, 0, 50, 50},
         {},
         FrameExtents{30, 30, 0, 0},
         {0, 0, 50, 50}},
        {"garbage", {0, 0, 50, 50}, {0, 0, 50, 50}, FrameExtents{0xFFFFFFFF, 0, 0, 0}, {}, {0, 0, 50, 50}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const RootBox r = visibleFrame(c.topLevel, c.client, c.manager, c.margins);
        EXPECT_EQ(r, c.expected) << r.x << "," << r.y << " " << r.width << "x" << r.height;
    }
}

TEST(MonitorOrder, MainFirstThenLeftToRightThenTopToBottom) {
    struct Case {
        const char* what;
        std::vector<std::tuple<uint32_t, int32_t, int32_t, bool>> monitors;  // id, x, y, primary
        std::vector<uint32_t> expected;
    };
    const Case cases[] = {
        {"2x2 grid, primary bottom right",
         {{1, 1920, 0, 0}, {2, 0, 1080, 0}, {3, 1920, 1080, 1}, {4, 0, 0, 0}},
         {3, 4, 2, 1}},
        {"left of the main one", {{7, 0, 0, 1}, {8, -1920, 300, 0}, {9, 1920, -200, 0}}, {7, 8, 9}},
        {"no primary: left to right from the first", {{5, 1920, 0, 0}, {6, 0, 0, 0}}, {5, 6}},
    };
    for (const Case& c : cases) {
        std::vector<X11Monitor> monitors;
        for (const auto& [id, x, y, primary] : c.monitors) monitors.push_back({{id, x, y, 1920, 1080}, primary, {}});
        orderMainFirst(monitors);
        std::vector<uint32_t> ids;
        for (const auto& m : monitors) ids.push_back(m.box.id);
        EXPECT_EQ(ids, c.expected) << c.what;
    }
}

std::vector<uint8_t> edidWithDescriptor(size_t offset, uint8_t tag, const std::string& text) {
    std::vector<uint8_t> edid(128, 0x11);
    for (size_t o : {54, 72, 90, 108}) edid[o] = 0x01;  // timing descriptors by default
    uint8_t* d = edid.data() + offset;
    d[0] = d[1] = d[2] = 0;
    d[3] = tag;
    d[4] = 0;
    for (size_t i = 0; i < 13; ++i)
        d[5 + i] = i < text.size() ? static_cast<uint8_t>(text[i]) : (i == text.size() ? 0x0A : 0x20);
    return edid;
}

TEST(EdidName, ReadsTheMonitorNameDescriptorWhereverItStands) {
    EXPECT_EQ(edidMonitorName(edidWithDescriptor(72, 0xFC, "DELL U2720Q")), "DELL U2720Q");
    EXPECT_EQ(edidMonitorName(edidWithDescriptor(108, 0xFC, "ABCDEFGHIJKLM")), "ABCDEFGHIJKLM");
    EXPECT_EQ(edidMonitorName(edidWithDescriptor(90, 0xFF, "SERIAL123")), std::nullopt);  // serial number
    EXPECT_EQ(edidMonitorName(edidWithDescriptor(54, 0xFC, "")), std::nullopt);
    EXPECT_EQ(edidMonitorName(std::vector<uint8_t>(100, 0)), std::nullopt);  // short block
}

TEST(BackingScale, WholeMultiplesOf96DpiScaleAndOtherDpiOnlySizeFonts) {
    const std::pair<const char*, double> cases[] = {
        {"Xft.antialias:\t1\nXft.dpi:\t192\n", 2.0},
        {"Xft.dpi:\t288\n", 3.0},
        {"Xft.dpi: 96\n", 1.0},
        {"Xft.dpi:\t120\n", 1.0},
        {"Xft.dpi: 144\n", 1.0},
        {"Xft.dpi:\t191.5\n", 1.0},
        {"Xft.dpi:\t48\n", 1.0},
        {"Xcursor.size:\t24\n", 1.0},
        {"Xft.dpi:\t0\n", 1.0},
    };
    for (const auto& [resources, scale] : cases) EXPECT_EQ(backingScaleFromResources(resources), scale) << resources;
}

// The owners and layers the inventory's rules know, from a window's types and
// states (the first known type decides), and whether it redirects itself.
TEST(WindowRole, TypesAndStatesGiveTheOwnerTitleAndLayer) {
    struct Case {
        std::vector<std::string> types, states;
        bool overrideRedirect;
        std::optional<std::string> owner, title;
        int32_t layer;
    };
    const std::string t = "_NET_WM_WINDOW_TYPE_", s = "_NET_WM_STATE_";
    const Case cases[] = {
        {{t + "DESKTOP"}, {}, false, "Window Server", "Desktop", INT32_MIN + 20},
        {{t + "DOCK"}, {s + "BELOW"}, false, "Dock", {}, 20},  // a state does not move a dock
        {{"_KDE_NET_WM_WINDOW_TYPE_OVERRIDE", t + "DOCK", t + "NORMAL"}, {}, false, "Dock", {}, 20},
        {{t + "NOTIFICATION"}, {}, false, "SystemUIServer", {}, 25},
        {{}, {s + "BELOW"}, false, {}, {}, -1},
        {{t + "NORMAL"}, {}, false, {}, {}, 0},
        {{}, {s + "ABOVE"}, false, {}, {}, 3},
        {{t + "DIALOG"}, {s + "MODAL", s + "ABOVE"}, false, {}, {}, 8},
        {{t + "NORMAL"}, {s + "FULLSCREEN"}, false, {}, {}, 21},  // over panels, under notifications
        {{t + "POPUP_MENU"}, {}, false, {}, {}, 101},
        {{}, {}, true, {}, {}, 101},  // an untyped override-redirect window is a pop-up
        {{t + "TOOLTIP"}, {}, true, {}, {}, 200},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE((c.types.empty() ? "untyped" : c.types.back()) + (c.states.empty() ? "" : " " + c.states[0]));
        const WindowRole role = windowRole(c.types, c.states, c.overrideRedirect);
        EXPECT_EQ(role.owner, c.owner);
        EXPECT_EQ(role.title, c.title);
        EXPECT_EQ(role.layer, c.layer);
    }
}

TEST(StackingLevels, StrictlyDecreaseFrontToBackKeepingEachKindsFrontmostAtItsLayer) {
    struct Case {
        const char* what;
        std::vector<int32_t> kinds, expected;
    };
    const Case cases[] = {
        {"ordinary desktop",
         {kTooltipLayer, kMenuLayer, kDockLayer, 0, 0, 0, kDesktopLayer},
         {kTooltipLayer, kMenuLayer, kDockLayer, 0, -1, -2, kDesktopLayer}},
        {"fullscreen over a panel", {kFullscreenLayer, kDockLayer, 0}, {kFullscreenLayer, kDockLayer, 0}},
        {"panel over an inactive fullscreen window", {kDockLayer, kFullscreenLayer, 0}, {kDockLayer, 19, 0}},
        {"notification under a raised window", {0, kNotificationLayer, kDockLayer}, {0, -1, -2}},
        {"desktop window on top", {kDesktopLayer, 0}, {kDesktopLayer, kDesktopLayer - 1}},
        {"nothing", {}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(stackingLevels(c.kinds), c.expected);
    }
    const std::vector<int32_t> deep(40, kDesktopLayer);
    const auto levels = stackingLevels(deep);
    EXPECT_EQ(levels.back(), INT32_MIN);  // clamped, not wrapped round
}

// Depth 24 and 32 in the common layout: the live picture tests.
TEST(ZPixmapPixels, OtherLayoutsAreReadThroughTheVisualMasksAndColourIsClampedToAlpha) {
    const ZPixmapFormat rgb565{16, 16, true, 0xF800, 0x07E0, 0x001F};
    const uint8_t rows[] = {0x00, 0xF8, 0xE0, 0x07, /*row 2*/ 0x1F, 0x00, 0xFF, 0xFF};
    EXPECT_EQ(imageFromZPixmap(rows, 2, 2, 4, rgb565).pixels,
              (std::vector<uint8_t>{255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 255, 255, 255, 255}));
    const uint8_t xrgb[] = {0, 1, 2, 3};
    EXPECT_EQ(imageFromZPixmap(xrgb, 1, 1, 4, ZPixmapFormat{24, 32, false}).pixels,
              (std::vector<uint8_t>{1, 2, 3, 255}));
    const uint8_t argb[] = {200, 200, 200, 100};
    EXPECT_EQ(imageFromZPixmap(argb, 1, 1, 4, ZPixmapFormat{32}).pixels, (std::vector<uint8_t>{100, 100, 100, 100}));
}

TEST(ClientIdentity, WindowsOfOneClientShareANumberThatIsNoPid) {
    const uint32_t mask = 0x001FFFFF;
    const int32_t first = clientNumber(0x00400007, mask);
    EXPECT_EQ(first, clientNumber(0x005FFFFF, mask));
    EXPECT_NE(first, clientNumber(0x00600001, mask));
    EXPECT_GE(first, kDerivedClientBase);
    EXPECT_EQ(processName(first), std::nullopt);
    EXPECT_EQ(processName(static_cast<int32_t>(getpid())), "x11_tests");
}

}  // namespace
}  // namespace pv::x11
