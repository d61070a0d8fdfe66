// The window list of a live X display: real X clients under openbox, and the
// root's children without a window manager.
#include <gtest/gtest.h>

#include "platform/x11/no_capture_mark.h"
#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

class ManagedDesktop : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        session = new XvfbSession(XvfbOptions{1400, 900, true, {}});
        xlogo = session->start({"xlogo", "-geometry", "200x150+50+60"});
        xeyes = session->start({"xeyes", "-geometry", "150x100+700+300"});
        xterm = session->start({"xterm", "-geometry", "40x8+300+400", "-title", "terminal"});
        std::string error;
        server = X11WindowServer::connect(session->display(), &error).release();
        ASSERT_NE(server, nullptr) << error;
        ASSERT_TRUE(waitForTitles(*server, {"xlogo", "xeyes", "terminal"}));
    }
    static void TearDownTestSuite() {
        delete server;
        delete session;
    }
    static void activate(const std::string& title) {
        const auto e = entryTitled(server->windowList(), title);
        ASSERT_TRUE(e);
        activateWindow(session->connection(), e->number);
        ASSERT_TRUE(XvfbSession::waitFor([&] { return indexOfTitle(server->windowList(), title) == 0; }));
    }

    static inline XvfbSession* session = nullptr;
    static inline X11WindowServer* server = nullptr;
    static inline pid_t xlogo = 0, xeyes = 0, xterm = 0;
};

TEST_F(ManagedDesktop, EachClientWindowComesWithTitleOwnerProcessAndFrame) {
    const auto list = server->windowList();
    struct Expected {
        std::string title, owner;
        pid_t pid;
    };
    for (const Expected& x : {Expected{"xlogo", "XLogo", xlogo}, Expected{"xeyes", "XEyes", xeyes},
                              Expected{"terminal", "XTerm", xterm}}) {
        SCOPED_TRACE(x.title);
        const auto e = entryTitled(list, x.title);
        ASSERT_TRUE(e);
        EXPECT_EQ(e->ownerName, x.owner);
        EXPECT_EQ(e->ownerPID, x.pid);  // xlogo and xeyes state no _NET_WM_PID: the server knows it
        EXPECT_EQ(e->sharingState, 1);
        EXPECT_EQ(e->layer, 0);
        // The frame with openbox's decorations, not the bare client.
        EXPECT_EQ(e->bounds, frameByTools(*session, e->number));
        EXPECT_GT(e->bounds.height, 0);
    }
}

TEST_F(ManagedDesktop, FramesIncludeTheDecorations) {
    const auto e = entryTitled(server->windowList(), "xlogo");
    ASSERT_TRUE(e);
    EXPECT_GT(e->bounds.height, 150);  // title bar above the 150-pixel client
    EXPECT_GE(e->bounds.width, 200);
}

TEST_F(ManagedDesktop, FrontmostWindowComesFirst) {
    activate("xeyes");
    activate("xlogo");
    const auto list = server->windowList();
    EXPECT_EQ(indexOfTitle(list, "xlogo"), 0);
    EXPECT_EQ(indexOfTitle(list, "xeyes"), 1);
    EXPECT_GT(indexOfTitle(list, "terminal"), 1);
    activate("terminal");
    EXPECT_EQ(indexOfTitle(server->windowList(), "xlogo"), 1);
}

TEST_F(ManagedDesktop, WindowsOfDifferentClientsNeverShareAnOwner) {
    const auto list = server->windowList();
    const auto a = entryTitled(list, "xlogo");
    const auto b = entryTitled(list, "xeyes");
    ASSERT_TRUE(a && b);
    EXPECT_NE(a->ownerPID, b->ownerPID);
    EXPECT_NE(a->number, b->number);
}

TEST_F(ManagedDesktop, MarkedWindowsAreNotShared) {
    const auto e = entryTitled(server->windowList(), "xeyes");
    ASSERT_TRUE(e);
    markWindowNoCapture(session->connection(), e->number);
    EXPECT_TRUE(XvfbSession::waitFor([&] { return entryTitled(server->windowList(), "xeyes")->sharingState == 0; }));
    EXPECT_EQ(entryTitled(server->windowList(), "xlogo")->sharingState, 1);
    xcb_delete_property(session->connection(), e->number, internAtom(session->connection(), "_PLENAVUE_NO_CAPTURE"));
    xcb_flush(session->connection());
}

TEST_F(ManagedDesktop, MinimisedWindowsAreNotOnScreen) {
    const auto e = entryTitled(server->windowList(), "terminal");
    ASSERT_TRUE(e);
    session->run({"xdotool", "windowminimize", "--sync", std::to_string(e->number)});
    EXPECT_TRUE(XvfbSession::waitFor([&] { return !entryTitled(server->windowList(), "terminal"); }));
    EXPECT_TRUE(entryTitled(server->windowList(), "xlogo"));
    session->run({"xdotool", "windowmap", "--sync", std::to_string(e->number)});
}

class UnmanagedDesktop : public ::testing::Test {
protected:
    void SetUp() override {
        session = std::make_unique<XvfbSession>(XvfbOptions{1200, 800, false, {}});
        xlogo = session->start({"xlogo", "-geometry", "200x150+50+60"});
        xeyes = session->start({"xeyes", "-geometry", "150x100+100+100"});
        std::string error;
        server = X11WindowServer::connect(session->display(), &error);
        ASSERT_NE(server, nullptr) << error;
        ASSERT_TRUE(waitForTitles(*server, {"xlogo", "xeyes"}));
    }
    std::unique_ptr<XvfbSession> session;
    std::unique_ptr<X11WindowServer> server;
    pid_t xlogo = 0, xeyes = 0;
};

TEST_F(UnmanagedDesktop, RootChildrenAreTheWindowsAtTheirOwnPlaces) {
    const auto list = server->windowList();
    const auto logo = entryTitled(list, "xlogo");
    ASSERT_TRUE(logo);
    EXPECT_EQ(logo->ownerName, "XLogo");
    EXPECT_EQ(logo->ownerPID, xlogo);
    const WindowRect frame = frameByTools(*session, logo->number);
    EXPECT_EQ(logo->bounds, frame);
    EXPECT_EQ(logo->bounds.x, 50);  // without a window manager nothing moves it
    EXPECT_EQ(logo->bounds.y, 60);
    EXPECT_EQ(topLevelOf(session->connection(), logo->number), logo->number);
}

TEST_F(UnmanagedDesktop, StackingOrderIsFrontToBack) {
    auto list = server->windowList();
    ASSERT_EQ(list.size(), 2u);
    const uint32_t logo = entryTitled(list, "xlogo")->number;
    const uint32_t mode = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(session->connection(), logo, XCB_CONFIG_WINDOW_STACK_MODE, &mode);
    xcb_flush(session->connection());
    EXPECT_TRUE(XvfbSession::waitFor([&] { return indexOfTitle(server->windowList(), "xlogo") == 0; }));
    EXPECT_EQ(indexOfTitle(server->windowList(), "xeyes"), 1);
}

TEST_F(UnmanagedDesktop, UnmappedAndInputOnlyWindowsAreLeftOut) {
    xcb_connection_t* c = session->connection();
    const xcb_window_t hidden = makeFilledWindow(c, 24, 10, 10, 50, 50, 0xff0000, "hidden");
    xcb_unmap_window(c, hidden);
    const xcb_window_t inputOnly = xcb_generate_id(c);
    xcb_create_window(c, 0, inputOnly, session->root(), 0, 0, 100, 100, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_map_window(c, inputOnly);
    const xcb_window_t shown = makeFilledWindow(c, 24, 10, 10, 50, 50, 0x00ff00, "shown");
    ASSERT_TRUE(waitForTitles(*server, {"shown"}));
    const auto list = server->windowList();
    EXPECT_FALSE(entryTitled(list, "hidden"));
    EXPECT_EQ(list.size(), 3u);
    EXPECT_EQ(list.front().number, shown);
    // A window without a class is owned by its process's name.
    EXPECT_EQ(list.front().ownerName, "x11_tests");
    EXPECT_EQ(list.front().ownerPID, getpid());
}

TEST_F(UnmanagedDesktop, ShellWindowTypesAreReportedUnderTheirSystemOwners) {
    xcb_connection_t* c = session->connection();
    auto atom = [&](const char* name) { return internAtom(c, name); };
    auto typed = [&](const char* type, const std::string& title, int y) {
        const xcb_window_t w = makeFilledWindow(c, 24, 300, y, 80, 30, 0x123456, title);
        const xcb_atom_t value = atom(type);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, 1, &value);
        xcb_flush(c);
    };
    typed("_NET_WM_WINDOW_TYPE_DOCK", "panel", 0);
    typed("_NET_WM_WINDOW_TYPE_NOTIFICATION", "note", 100);
    typed("_NET_WM_WINDOW_TYPE_DESKTOP", "background", 200);
    ASSERT_TRUE(waitForTitles(*server, {"panel", "note", "Desktop"}));
    const auto list = server->windowList();
    EXPECT_EQ(entryTitled(list, "panel")->ownerName, "Dock");
    EXPECT_EQ(entryTitled(list, "panel")->layer, 20);
    EXPECT_EQ(entryTitled(list, "note")->ownerName, "SystemUIServer");
    EXPECT_EQ(entryTitled(list, "Desktop")->ownerName, "Window Server");
    EXPECT_LT(entryTitled(list, "Desktop")->layer, 0);
    EXPECT_FALSE(entryTitled(list, "background"));
}

}  // namespace
}  // namespace pv::test
