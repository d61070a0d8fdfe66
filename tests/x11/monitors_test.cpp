// Two RandR monitors of different size side by side on one Xvfb screen.
#include <gtest/gtest.h>

#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

// The main monitor (1600x900) stands with its bottom level with that of the
// taller second one (1280x1200) to its right, so its top is 300 pixels lower.
// The second is defined first, so the server lists it first.
XvfbOptions twoMonitors(bool windowManager) {
    return XvfbOptions{2880, 1200, windowManager,
                       {MonitorSpec{"SIDE", 1600, 0, 1280, 1200, false}, MonitorSpec{"MAIN", 0, 300, 1600, 900, true}}};
}

class TwoMonitors : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        session = new XvfbSession(twoMonitors(false));
        std::string error;
        server = X11WindowServer::connect(session->display(), &error).release();
        ASSERT_NE(server, nullptr) << error;
    }
    static void TearDownTestSuite() {
        delete server;
        delete session;
    }
    static inline XvfbSession* session = nullptr;
    static inline X11WindowServer* server = nullptr;
};

TEST_F(TwoMonitors, PrimaryComesFirstWithBottomUpFramesFromItsBottomLeft) {
    const auto screens = server->screenList();
    ASSERT_EQ(screens.size(), 2u);
    EXPECT_EQ(screens[0].frame, (ScreenRect{0, 0, 1600, 900}));
    EXPECT_EQ(screens[1].frame, (ScreenRect{1600, 0, 1280, 1200}));
    EXPECT_NE(screens[0].displayId, 0u);
    EXPECT_NE(screens[1].displayId, 0u);
    EXPECT_NE(screens[0].displayId, screens[1].displayId);
    EXPECT_EQ(screens[0].backingScaleFactor, 1.0);
    EXPECT_EQ(server->screenList()[0].displayId, screens[0].displayId);  // stable between calls
}

TEST_F(TwoMonitors, WindowBoundsAreRelativeToTheMainMonitorsTopLeft) {
    makeFilledWindow(session->connection(), 24, 1700, 100, 200, 100, 0xff0000, "right");
    ASSERT_TRUE(waitForTitles(*server, {"right"}));
    EXPECT_EQ(entryTitled(server->windowList(), "right")->bounds, (WindowRect{1700, -200, 200, 100}));
}

TEST_F(TwoMonitors, WindowSpanningBothMeetsBothDisplays) {
    const auto screens = server->screenList();
    const WindowRect spanning{1500, 100, 200, 100};
    EXPECT_EQ(server->displaysOfRect(spanning, 2),
              (std::vector<uint32_t>{screens[0].displayId, screens[1].displayId}));
    EXPECT_EQ(server->displaysOfRect(spanning, 1), (std::vector<uint32_t>{screens[0].displayId}));
    EXPECT_EQ(server->displaysOfRect(WindowRect{1700, -250, 100, 100}, 2), (std::vector<uint32_t>{screens[1].displayId}));
    EXPECT_EQ(server->displaysOfRect(WindowRect{100, -250, 100, 100}, 2), (std::vector<uint32_t>{}));  // above the main one
}

TEST_F(TwoMonitors, VirtualMonitorsHaveNoProductName) {
    for (const auto& s : server->screenList()) EXPECT_EQ(server->productName(s.displayId), std::nullopt);
    EXPECT_EQ(server->productName(12345), std::nullopt);
}

TEST(Scale, XftDpiOnTheRootSetsThePointSize) {
    XvfbSession session(XvfbOptions{1600, 1000, false, {}});
    xcb_connection_t* c = session.connection();
    const std::string resources = "Xft.dpi:\t192\n";
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, session.root(), internAtom(c, "RESOURCE_MANAGER"), XCB_ATOM_STRING,
                        8, static_cast<uint32_t>(resources.size()), resources.c_str());
    makeFilledWindow(c, 24, 100, 200, 300, 100, 0xff, "scaled");
    std::string error;
    auto server = X11WindowServer::connect(session.display(), &error);
    ASSERT_TRUE(server) << error;
    ASSERT_TRUE(waitForTitles(*server, {"scaled"}));
    const auto screens = server->screenList();
    ASSERT_EQ(screens.size(), 1u);
    EXPECT_EQ(screens[0].backingScaleFactor, 2.0);
    EXPECT_EQ(screens[0].frame, (ScreenRect{0, 0, 800, 500}));
    EXPECT_EQ(entryTitled(server->windowList(), "scaled")->bounds, (WindowRect{50, 100, 150, 50}));
    // Pictures stay in pixels.
    EXPECT_EQ(server->windowPicture(std::nullopt, entryTitled(server->windowList(), "scaled")->number, false)->width,
              300);
}

}  // namespace
}  // namespace pv::test
