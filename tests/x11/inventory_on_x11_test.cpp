// The inventory and the capture rules on a real X server with two monitors:
// screen nodes, spanning windows, and windows that go away between the list
// and their picture.
#include <gtest/gtest.h>

#include "capture/window_collection.h"
#include "capture/window_shot.h"
#include "inventory/inventory.h"
#include "platform/x11/no_capture_mark.h"
#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

// Main monitor 1600x900, its bottom level with the taller 1280x1200 to its right.
XvfbOptions twoMonitors() {
    return XvfbOptions{2880, 1200, false,
                       {MonitorSpec{"SIDE", 1600, 0, 1280, 1200, false}, MonitorSpec{"MAIN", 0, 300, 1600, 900, true}}};
}

std::vector<std::string> titlesUnder(const PVWindowElement::Ptr& screen) {
    std::vector<std::string> titles;
    for (const auto& app : screen->children()) {
        for (const auto& w : app->children()) titles.push_back(w->name);
    }
    return titles;
}

TEST(InventoryOnX11, TwoMonitorsAndAWindowSpanningBoth) {
    XvfbSession session(twoMonitors());
    std::string error;
    auto server = X11WindowServer::connect(session.display(), &error);
    ASSERT_TRUE(server) << error;
    makeFilledWindow(session.connection(), 24, 100, 400, 300, 200, 0x00ff00, "left only");
    makeFilledWindow(session.connection(), 24, 1500, 500, 300, 200, 0xff0000, "spanning");
    makeFilledWindow(session.connection(), 24, 1700, 50, 200, 100, 0x0000ff, "side only");
    ASSERT_TRUE(waitForTitles(*server, {"left only", "spanning", "side only"}));

    Inventory inventory(*server);
    inventory.refreshScreenList();
    inventory.refreshWindows();
    const auto screens = inventory.root->children();
    ASSERT_EQ(screens.size(), 2u);
    EXPECT_EQ(screens[0]->dimensions, (Rect{0, 0, 1600, 900}));
    EXPECT_TRUE(screens[0]->isMainDisplay);
    EXPECT_EQ(screens[1]->dimensions, (Rect{1600, 0, 1280, 1200}));
    EXPECT_FLOAT_EQ(inventory.measures.mainScreenHeight, 900);

    const auto main = titlesUnder(screens[0]);
    const auto side = titlesUnder(screens[1]);
    EXPECT_NE(std::find(main.begin(), main.end(), "spanning"), main.end());
    EXPECT_NE(std::find(side.begin(), side.end(), "spanning"), side.end());
    EXPECT_NE(std::find(main.begin(), main.end(), "left only"), main.end());
    EXPECT_EQ(std::find(side.begin(), side.end(), "left only"), side.end());
    EXPECT_NE(std::find(side.begin(), side.end(), "side only"), side.end());
}

TEST(InventoryOnX11, AWindowDestroyedBeforeItsPictureIsLeftOut) {
    XvfbSession session;
    std::string error;
    auto server = X11WindowServer::connect(session.display(), &error);
    ASSERT_TRUE(server) << error;
    makeFilledWindow(session.connection(), 24, 100, 100, 200, 150, 0xff0000, "stays");
    const xcb_window_t doomed = makeFilledWindow(session.connection(), 24, 400, 100, 200, 150, 0x0000ff, "goes");
    ASSERT_TRUE(waitForTitles(*server, {"stays", "goes"}));

    Inventory inventory(*server);
    inventory.refreshScreenList();
    inventory.refreshWindows();
    std::vector<PVWindowElement::Ptr> windows;
    collectWindows(inventory.root, windows);
    ASSERT_EQ(windows.size(), 2u);

    xcb_destroy_window(session.connection(), doomed);
    xcb_flush(session.connection());
    ASSERT_TRUE(XvfbSession::waitFor([&] { return !entryTitled(server->windowList(), "goes"); }));

    for (const auto& w : windows) getShot(*w, *server, false);
    for (const auto& w : windows) {
        if (w->name == "goes") {
            EXPECT_FALSE(w->shot);
        } else {
            ASSERT_TRUE(w->shot);
            EXPECT_EQ(w->shot->width, 200);
        }
    }
}

TEST(InventoryOnX11, OurOwnWindowsAreLeftOutOfTheDesktopPicture) {
    XvfbSession session;
    std::string error;
    auto server = X11WindowServer::connect(session.display(), &error);
    ASSERT_TRUE(server) << error;
    makeFilledWindow(session.connection(), 24, 100, 100, 200, 150, 0xff0000, "below");
    const xcb_window_t ours = makeFilledWindow(session.connection(), 24, 150, 120, 200, 150, 0x0000ff, "ours");
    markWindowNoCapture(session.connection(), ours);
    xcb_flush(session.connection());
    ASSERT_TRUE(waitForTitles(*server, {"below", "ours"}));
    ASSERT_TRUE(XvfbSession::waitFor([&] {
        const auto list = server->windowList();
        const auto e = entryTitled(list, "ours");
        return e && e->sharingState == 0;
    }));

    const auto desktop = server->desktopPicture();
    ASSERT_TRUE(desktop);
    const auto at = [&](int x, int y) {
        const uint8_t* p = desktop->row(y) + x * 4;
        return std::vector<int>{p[0], p[1], p[2], p[3]};
    };
    EXPECT_EQ(at(200, 200), (std::vector<int>{255, 0, 0, 255}));  // the window below, where ours stands
    EXPECT_EQ(at(320, 250), (std::vector<int>{0, 0, 0, 255}));    // nothing below ours there
    EXPECT_EQ(at(120, 110), (std::vector<int>{255, 0, 0, 255}));  // untouched elsewhere
}

}  // namespace
}  // namespace pv::test
