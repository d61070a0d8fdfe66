// Two RandR monitors of different size side by side on one Xvfb screen: the
// screens, window bounds and the displays they meet, the inventory's screen
// nodes, windows gone before their picture, our own windows left out of the
// desktop picture; and the point size Xft.dpi sets.
#include <gtest/gtest.h>

#include "capture/window_collection.h"
#include "capture/window_shot.h"
#include "inventory/inventory.h"
#include "platform/x11/no_capture_mark.h"
#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

// The main monitor (1600x900) stands with its bottom level with that of the
// taller second one (1280x1200) to its right, so its top is 300 pixels lower.
// The second is defined first, so the server lists it first.
class TwoMonitors : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        session = new XvfbSession(XvfbOptions{
            2880, 1200, false, {{"SIDE", 1600, 0, 1280, 1200, false}, {"MAIN", 0, 300, 1600, 900, true}}});
        std::string error;
        server = X11WindowServer::connect(session->display(), &error).release();
        ASSERT_NE(server, nullptr) << error;
    }
    static void TearDownTestSuite() {
        delete server;
        delete session;
    }
    static xcb_window_t window(int x, int y, int w, int h, uint32_t pixel, const std::string& title) {
        return makeFilledWindow(session->connection(), 24, x, y, w, h, pixel, title);
    }
    static inline XvfbSession* session = nullptr;
    static inline X11WindowServer* server = nullptr;
};

TEST_F(TwoMonitors, PrimaryComesFirstWithBottomUpFramesAndWindowsRelativeToItsTopLeft) {
    const auto screens = server->screenList();
    ASSERT_EQ(screens.size(), 2u);
    EXPECT_EQ(screens[0].frame, (ScreenRect{0, 0, 1600, 900}));
    EXPECT_EQ(screens[1].frame, (ScreenRect{1600, 0, 1280, 1200}));
    EXPECT_NE(screens[0].displayId, screens[1].displayId);
    EXPECT_EQ(screens[0].backingScaleFactor, 1.0);
    EXPECT_EQ(server->screenList()[0].displayId, screens[0].displayId);  // stable between calls
    for (const auto& s : screens) EXPECT_EQ(server->productName(s.displayId), std::nullopt);  // virtual monitors

    window(1700, 100, 200, 100, 0xff0000, "right");
    ASSERT_TRUE(waitForTitles(*server, {"right"}));
    EXPECT_EQ(entryTitled(server->windowList(), "right")->bounds, (WindowRect{1700, -200, 200, 100}));

    const WindowRect spanning{1500, 100, 200, 100};
    const uint32_t main = screens[0].displayId, side = screens[1].displayId;
    EXPECT_EQ(server->displaysOfRect(spanning, 2), (std::vector<uint32_t>{main, side}));
    EXPECT_EQ(server->displaysOfRect(spanning, 1), (std::vector<uint32_t>{main}));
    EXPECT_EQ(server->displaysOfRect(WindowRect{1700, -250, 100, 100}, 2), (std::vector<uint32_t>{side}));
    EXPECT_EQ(server->displaysOfRect(WindowRect{100, -250, 100, 100}, 2), (std::vector<uint32_t>{}));  // above main
}

TEST_F(TwoMonitors, TheInventoryFilesAWindowUnderEachScreenItMeets) {
    window(100, 400, 300, 200, 0x00ff00, "left only");
    window(1500, 500, 300, 200, 0xff0000, "spanning");
    window(1700, 50, 200, 100, 0x0000ff, "side only");
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
    std::set<std::string> under[2];
    for (int i = 0; i < 2; ++i)
        for (const auto& app : screens[i]->children())
            for (const auto& w : app->children()) under[i].insert(w->name);
    EXPECT_TRUE(under[0].count("spanning") && under[1].count("spanning"));
    EXPECT_TRUE(under[0].count("left only") && !under[1].count("left only"));
    EXPECT_TRUE(!under[0].count("side only") && under[1].count("side only"));
}

TEST_F(TwoMonitors, AWindowDestroyedBeforeItsPictureIsLeftOut) {
    window(100, 700, 200, 150, 0xff0000, "stays");
    const xcb_window_t doomed = window(400, 700, 200, 150, 0x0000ff, "goes");
    ASSERT_TRUE(waitForTitles(*server, {"stays", "goes"}));
    Inventory inventory(*server);
    inventory.refreshScreenList();
    inventory.refreshWindows();
    std::vector<PVWindowElement::Ptr> windows;
    collectWindows(inventory.root, windows);
    xcb_destroy_window(session->connection(), doomed);
    xcb_flush(session->connection());
    ASSERT_TRUE(waitFor([&] { return !entryTitled(server->windowList(), "goes"); }));
    for (const auto& w : windows) getShot(*w, *server, false);
    std::map<std::string, bool> shot;
    for (const auto& w : windows) shot[w->name] = w->shot && w->shot->width == 200;
    EXPECT_EQ(shot.at("stays"), true);
    EXPECT_EQ(shot.at("goes"), false);
}

TEST_F(TwoMonitors, OurOwnWindowsAreLeftOutOfTheDesktopPicture) {
    window(600, 400, 200, 150, 0xff0000, "below");
    const xcb_window_t ours = window(650, 420, 200, 150, 0x0000ff, "ours");
    markWindowNoCapture(session->connection(), ours);
    xcb_flush(session->connection());
    ASSERT_TRUE(waitFor([&] {
        const auto e = entryTitled(server->windowList(), "ours");
        return e && e->sharingState == 0;
    }));
    const auto desktop = server->desktopPicture();
    ASSERT_TRUE(desktop);
    const auto at = [&](int x, int y) { return std::vector<uint8_t>(desktop->row(y) + 4 * x, desktop->row(y) + 4 * x + 4); };
    EXPECT_EQ(at(700, 500), (std::vector<uint8_t>{255, 0, 0, 255}));  // the window below, where ours stands
    EXPECT_EQ(at(820, 550), (std::vector<uint8_t>{0, 0, 0, 255}));    // nothing below ours there
    EXPECT_EQ(at(620, 410), (std::vector<uint8_t>{255, 0, 0, 255}));  // untouched elsewhere
}

TEST(Scale, XftDpiOnTheRootSetsThePointSize) {
    XvfbOptions options{1600, 1000, false, {}};
    options.resources = "Xft.dpi:\t192\n";
    XvfbSession session(options);
    makeFilledWindow(session.connection(), 24, 100, 200, 300, 100, 0xff, "scaled");
    std::string error;
    auto server = X11WindowServer::connect(session.display(), &error);
    ASSERT_TRUE(server) << error;
    ASSERT_TRUE(waitForTitles(*server, {"scaled"}));
    const auto screens = server->screenList();
    ASSERT_EQ(screens.size(), 1u);
    EXPECT_EQ(screens[0].backingScaleFactor, 2.0);
    EXPECT_EQ(screens[0].frame, (ScreenRect{0, 0, 800, 500}));
    const auto scaled = entryTitled(server->windowList(), "scaled");
    EXPECT_EQ(scaled->bounds, (WindowRect{50, 100, 150, 50}));
    EXPECT_EQ(server->windowPicture(std::nullopt, scaled->number, false)->width, 300);  // pictures stay in pixels
}

}  // namespace
}  // namespace pv::test
