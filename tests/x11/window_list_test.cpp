// The window list of a live X display: real X clients under openbox, and the
// root's children without a window manager.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>

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
        EXPECT_LE(e->layer, 0);  // normal windows: the frontmost at 0, those behind it below
        // The frame with openbox's decorations, not the bare client.
        // One monitor at the root's origin and scale 1: root pixels are points.
        EXPECT_EQ(e->bounds, retagged<WindowSpace>(frameByTools(*session, e->number)));
    }
    // Marked as ours: not shared.
    markWindowNoCapture(session->connection(), entryTitled(list, "xeyes")->number);
    EXPECT_TRUE(XvfbSession::waitFor([&] { return entryTitled(server->windowList(), "xeyes")->sharingState == 0; }));
    EXPECT_EQ(entryTitled(server->windowList(), "xlogo")->sharingState, 1);
}

TEST_F(ManagedDesktop, FrontmostWindowComesFirst) {
    activate("xeyes");
    activate("xlogo");
    const auto list = server->windowList();
    EXPECT_EQ(indexOfTitle(list, "xlogo"), 0);
    EXPECT_EQ(indexOfTitle(list, "xeyes"), 1);
    EXPECT_GT(indexOfTitle(list, "terminal"), 1);
    EXPECT_EQ(list[0].layer, 0);
    for (size_t i = 1; i < list.size(); ++i) EXPECT_LT(list[i].layer, list[i - 1].layer);
    activate("terminal");
    EXPECT_EQ(indexOfTitle(server->windowList(), "xlogo"), 1);
}

// Window managers unmap what they hide, but nothing forces them to: a client
// whose WM_STATE or desktop says it is hidden is not on screen while mapped.
TEST_F(ManagedDesktop, MinimisedIconicOrOnAnotherDesktopWindowsAreNotOnScreen) {
    xcb_connection_t* c = session->connection();
    const uint32_t eyes = entryTitled(server->windowList(), "xeyes")->number;
    const xcb_atom_t wmState = internAtom(c, "WM_STATE");
    const xcb_atom_t desktop = internAtom(c, "_NET_WM_DESKTOP");
    const auto setState = [&](uint32_t state) {
        const uint32_t value[] = {state, XCB_NONE};
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, eyes, wmState, wmState, 32, 2, value);
        xcb_flush(c);
    };
    const auto setDesktop = [&](uint32_t d) {
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, eyes, desktop, XCB_ATOM_CARDINAL, 32, 1, &d);
        xcb_flush(c);
    };
    const auto listed = [&] { return entryTitled(server->windowList(), "xeyes").has_value(); };

    setState(3);  // IconicState
    EXPECT_TRUE(XvfbSession::waitFor([&] { return !listed(); }));
    setState(1);
    EXPECT_TRUE(XvfbSession::waitFor(listed));
    setDesktop(2);
    EXPECT_TRUE(XvfbSession::waitFor([&] { return !listed(); }));
    setDesktop(0xFFFFFFFF);  // on every desktop
    EXPECT_TRUE(XvfbSession::waitFor(listed));
    setDesktop(0);
    EXPECT_TRUE(XvfbSession::waitFor(listed));
    // Minimised by the manager.
    session->run({"xdotool", "windowminimize", "--sync", std::to_string(eyes)});
    EXPECT_TRUE(XvfbSession::waitFor([&] { return !listed(); }));
    EXPECT_TRUE(entryTitled(server->windowList(), "xlogo"));
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

TEST_F(UnmanagedDesktop, RootChildrenAreTheWindowsAtTheirOwnPlacesFrontToBack) {
    const auto list = server->windowList();
    ASSERT_EQ(list.size(), 2u);
    const auto logo = entryTitled(list, "xlogo");
    ASSERT_TRUE(logo);
    EXPECT_EQ(logo->ownerName, "XLogo");
    EXPECT_EQ(logo->ownerPID, xlogo);
    // Scale 1, one monitor at the origin; without a window manager nothing moves it.
    EXPECT_EQ(logo->bounds, retagged<WindowSpace>(frameByTools(*session, logo->number)));
    EXPECT_EQ(logo->bounds, (WindowRect{50, 60, 202, 152}));  // a border of 1
    const uint32_t mode = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(session->connection(), logo->number, XCB_CONFIG_WINDOW_STACK_MODE, &mode);
    xcb_flush(session->connection());
    EXPECT_TRUE(XvfbSession::waitFor([&] { return indexOfTitle(server->windowList(), "xlogo") == 0; }));
    EXPECT_EQ(indexOfTitle(server->windowList(), "xeyes"), 1);
}

// Unmapped, input-only and off-screen windows are left out; a window without
// a class is owned by its process, and the server's pid of a client comes
// before the one it states (in another pid namespace that means nothing here).
TEST_F(UnmanagedDesktop, UnmappedInputOnlyAndOffScreenWindowsAreLeftOut) {
    xcb_connection_t* c = session->connection();
    const xcb_window_t hidden = makeFilledWindow(c, 24, 10, 10, 50, 50, 0xff0000, "hidden");
    xcb_unmap_window(c, hidden);
    const xcb_window_t inputOnly = xcb_generate_id(c);
    xcb_create_window(c, 0, inputOnly, session->root(), 0, 0, 100, 100, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_map_window(c, inputOnly);
    makeFilledWindow(c, 24, -300, -300, 100, 100, 0xff, "parked");
    makeFilledWindow(c, 24, 1200, 100, 100, 100, 0xff, "right of it");  // the screen is 1200 wide
    makeFilledWindow(c, 24, 1190, 790, 100, 100, 0xff, "corner");
    const xcb_window_t shown = makeFilledWindow(c, 24, 10, 10, 50, 50, 0x00ff00, "shown");
    const uint32_t statedPid = 2;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, shown, internAtom(c, "_NET_WM_PID"), XCB_ATOM_CARDINAL, 32, 1,
                        &statedPid);
    xcb_flush(c);
    ASSERT_TRUE(waitForTitles(*server, {"shown", "corner"}));
    const auto list = server->windowList();
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(entryTitled(list, "corner")->bounds, (WindowRect{1190, 790, 100, 100}));
    EXPECT_EQ(list.front().number, shown);
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
    // Nothing stacks the desktop window at the back here; put it there.
    const uint32_t below = XCB_STACK_MODE_BELOW;
    xcb_configure_window(c, entryTitled(server->windowList(), "Desktop")->number, XCB_CONFIG_WINDOW_STACK_MODE, &below);
    xcb_flush(c);
    ASSERT_TRUE(XvfbSession::waitFor([&] { return server->windowList().back().title == "Desktop"; }));
    const auto list = server->windowList();
    EXPECT_EQ(entryTitled(list, "panel")->ownerName, "Dock");
    EXPECT_EQ(entryTitled(list, "panel")->layer, 20);
    EXPECT_EQ(entryTitled(list, "note")->ownerName, "SystemUIServer");
    EXPECT_EQ(entryTitled(list, "note")->layer, 25);
    EXPECT_EQ(entryTitled(list, "Desktop")->ownerName, "Window Server");
    EXPECT_EQ(entryTitled(list, "Desktop")->layer, INT32_MIN + 20);
    EXPECT_FALSE(entryTitled(list, "background"));
}

// Front to back: an untyped pop-up, a typed one, the plain windows. Layers
// fall strictly along the list, so a sort by layer keeps the stacking.
TEST_F(UnmanagedDesktop, OverrideRedirectWindowsNeedAClassOrATypeAndStackAbovePlainWindows) {
    xcb_connection_t* c = session->connection();
    const auto popUp = [&](const std::string& title, int y, const std::string& wmClass, const char* type) {
        const xcb_window_t w = makeFilledWindow(c, 24, 600, y, 80, 40, 0xabcdef, title);
        const uint32_t on = 1;
        xcb_unmap_window(c, w);
        xcb_change_window_attributes(c, w, XCB_CW_OVERRIDE_REDIRECT, &on);
        if (!wmClass.empty())
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                                static_cast<uint32_t>(wmClass.size()), wmClass.data());
        if (type) {
            const xcb_atom_t value = internAtom(c, type);
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, internAtom(c, "_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM,
                                32, 1, &value);
        }
        xcb_map_window(c, w);
        xcb_flush(c);
    };
    popUp("bare", 10, "", nullptr);
    popUp("empty class", 60, std::string("\0\0", 2), nullptr);
    popUp("tooltip", 110, "", "_NET_WM_WINDOW_TYPE_TOOLTIP");
    popUp("classed", 160, std::string("menu\0Menu\0", 10), nullptr);
    ASSERT_TRUE(waitForTitles(*server, {"tooltip", "classed"}));
    const auto list = server->windowList();
    EXPECT_FALSE(entryTitled(list, "bare"));
    EXPECT_FALSE(entryTitled(list, "empty class"));
    EXPECT_EQ(indexOfTitle(list, "classed"), 0);
    EXPECT_EQ(indexOfTitle(list, "tooltip"), 1);
    EXPECT_EQ(list[0].layer, 101);  // no type: a pop-up menu's layer
    for (size_t i = 1; i < list.size(); ++i) EXPECT_LT(list[i].layer, list[i - 1].layer) << *list[i].title;
}

// This test's own connection plays the window manager: it names a check
// window, and windows it makes without a client in them are its own.
class PlayedManager : public ::testing::Test {
protected:
    void SetUp() override {
        session = std::make_unique<XvfbSession>(XvfbOptions{1200, 800, false, {}});
        xcb_connection_t* c = session->connection();
        const xcb_window_t check = xcb_generate_id(c);
        xcb_create_window(c, 0, check, session->root(), -10, -10, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                          XCB_COPY_FROM_PARENT, 0, nullptr);
        const xcb_atom_t supporting = internAtom(c, "_NET_SUPPORTING_WM_CHECK");
        for (xcb_window_t on : {session->root(), check})
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, on, supporting, XCB_ATOM_WINDOW, 32, 1, &check);
        xcb_flush(c);
        std::string error;
        server = X11WindowServer::connect(session->display(), &error);
        ASSERT_NE(server, nullptr) << error;
    }
    std::unique_ptr<XvfbSession> session;
    std::unique_ptr<X11WindowServer> server;
};

TEST_F(PlayedManager, ItsBarsAreSystemWindowsAndItsGuardAndUnmanagedWindowsAreLeftOut) {
    xcb_connection_t* c = session->connection();
    makeFilledWindow(c, 24, 0, 0, 1200, 800, 0x000000, "guard");
    makeFilledWindow(c, 24, 0, 780, 1200, 20, 0x333333, "toolbar");
    makeFilledWindow(c, 24, -100, -100, 1, 1, 0x333333, "parked");
    session->start({"xlogo", "-geometry", "200x150+50+60"});  // never managed: no WM_STATE
    const xcb_window_t managed = makeFilledWindow(c, 24, 400, 300, 100, 100, 0xff0000, "managed");
    const xcb_atom_t wmState = internAtom(c, "WM_STATE");
    const uint32_t normal[] = {1, XCB_NONE};
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, managed, wmState, wmState, 32, 2, normal);
    xcb_flush(c);
    ASSERT_TRUE(waitForTitles(*server, {"toolbar", "managed"}));
    ASSERT_TRUE(XvfbSession::waitFor([&] {
        return session->run({"xwininfo", "-root", "-children"}).find("xlogo") != std::string::npos;
    }));
    const auto list = server->windowList();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].title, "managed");
    EXPECT_EQ(list[1].title, "toolbar");
    EXPECT_EQ(list[1].ownerName, "Dock");
    EXPECT_EQ(list[1].bounds, (WindowRect{0, 780, 1200, 20}));
}

}  // namespace
}  // namespace pv::test
