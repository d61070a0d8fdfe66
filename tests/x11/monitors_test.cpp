// Two RandR monitors of different size side by side on one Xvfb screen: the
// screens, window bounds and the displays they meet, the inventory's screen
// nodes, and our own windows left out of the desktop picture.
#include <gtest/gtest.h>

#include <set>

#include "inventory/inventory.h"
#include "platform/x11/no_capture_mark.h"
#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

// The main monitor (1600x900) stands with its bottom level with that of the
// taller second one (1280x1200) to its right, so its top is 300 pixels lower.
// The second is defined first, so the server lists it first.
TEST(TwoMonitors, MainFirstBottomUpWithWindowsFiledUnderEachScreenTheyMeetAndOursLeftOutOfTheDesktop) {
    XvfbSession session(
        XvfbOptions{2880, 1200, false, {{"SIDE", 1600, 0, 1280, 1200, false}, {"MAIN", 0, 300, 1600, 900, true}}});
    std::string error;
    auto server = X11WindowServer::connect(session.display(), &error);
    ASSERT_TRUE(server) << error;
    const auto screens = server->screenList();
    ASSERT_EQ(screens.size(), 2u);
    EXPECT_EQ(screens[0].frame, (ScreenRect{0, 0, 1600, 900}));
    EXPECT_EQ(screens[1].frame, (ScreenRect{1600, 0, 1280, 1200}));
    EXPECT_NE(screens[0].displayId, screens[1].displayId);
    EXPECT_EQ(server->screenList()[0].displayId, screens[0].displayId);                       // stable between calls
    for (const auto& s : screens) EXPECT_EQ(server->productName(s.displayId), std::nullopt);  // virtual monitors
    const uint32_t main = screens[0].displayId, side = screens[1].displayId;
    const WindowRect spanning{1500, 100, 200, 100};
    EXPECT_EQ(server->displaysOfRect(spanning, 2), (std::vector<uint32_t>{main, side}));
    EXPECT_EQ(server->displaysOfRect(spanning, 1), (std::vector<uint32_t>{main}));
    EXPECT_EQ(server->displaysOfRect(WindowRect{100, -250, 100, 100}, 2), (std::vector<uint32_t>{}));  // above main

    xcb_connection_t* c = session.connection();
    makeFilledWindow(c, 24, 100, 400, 300, 200, 0x00ff00, "left only");
    makeFilledWindow(c, 24, 1500, 500, 300, 200, 0xff0000, "spanning");
    makeFilledWindow(c, 24, 1700, 100, 200, 100, 0x0000ff, "side only");
    const xcb_window_t ours = makeFilledWindow(c, 24, 300, 520, 200, 150, 0x0000ff, "ours");
    markWindowNoCapture(c, ours);
    xcb_flush(c);
    ASSERT_TRUE(waitForTitles(*server, {"left only", "spanning", "side only", "ours"}));
    const auto list = server->windowList();
    EXPECT_EQ(entryTitled(list, "side only")->bounds, (WindowRect{1700, -200, 200, 100}));
    EXPECT_EQ(entryTitled(list, "ours")->sharingState, 0);
    EXPECT_EQ(entryTitled(list, "spanning")->sharingState, 1);

    Inventory inventory(*server);
    inventory.refreshScreenList();
    inventory.refreshWindows();
    const auto nodes = inventory.root->children();
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_TRUE(nodes[0]->isMainDisplay);
    EXPECT_EQ(nodes[1]->dimensions, (Rect{1600, 0, 1280, 1200}));
    EXPECT_FLOAT_EQ(inventory.measures.mainScreenHeight, 900);
    std::set<std::string> under[2];
    for (int i = 0; i < 2; ++i)
        for (const auto& app : nodes[i]->children())
            for (const auto& w : app->children()) under[i].insert(w->name);
    EXPECT_TRUE(under[0].count("spanning") && under[1].count("spanning"));
    EXPECT_TRUE(under[0].count("left only") && !under[1].count("left only"));
    EXPECT_TRUE(!under[0].count("side only") && under[1].count("side only"));

    // The desktop picture shows what lies below our window.
    const auto desktop = server->desktopPicture();
    ASSERT_TRUE(desktop);
    const auto at = [&](int x, int y) {
        return std::vector<uint8_t>(desktop->row(y) + 4 * x, desktop->row(y) + 4 * x + 4);
    };
    EXPECT_EQ(at(350, 550), (std::vector<uint8_t>{0, 255, 0, 255}));  // the window below, where ours stands
    EXPECT_EQ(at(450, 650), (std::vector<uint8_t>{0, 0, 0, 255}));    // nothing below ours there
    EXPECT_EQ(at(120, 410), (std::vector<uint8_t>{0, 255, 0, 255}));  // untouched elsewhere
}

}  // namespace
}  // namespace pv::test
