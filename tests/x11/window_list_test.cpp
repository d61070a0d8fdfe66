// The window list of a live X display without a window manager: the root's
// children front to back, system windows and pop-ups; and with this test's
// own connection playing the manager. (Real managers: the desktop matrix.)
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>

#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

class Unmanaged : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        server = X11WindowServer::connect(session.display(), &error);
        ASSERT_NE(server, nullptr) << error;
    }
    void setAtoms(xcb_window_t w, const char* property, xcb_atom_t type, std::vector<uint32_t> values) {
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, internAtom(c, property), type, 32,
                            static_cast<uint32_t>(values.size()), values.data());
        xcb_flush(c);
    }
    std::vector<std::string> titles() {
        std::vector<std::string> t;
        for (const auto& e : server->windowList()) t.push_back(e.title.value_or(""));
        return t;
    }

    XvfbSession session{XvfbOptions{1200, 800}};
    xcb_connection_t* c = session.connection();
    std::unique_ptr<X11WindowServer> server;
};

// Unmapped, input-only and off-screen windows are left out; a window without
// a class is owned by its process, and the server's pid of a client comes
// before the one it states (in another pid namespace that means nothing here).
TEST_F(Unmanaged, RootChildrenAreTheShownWindowsAtTheirOwnPlacesFrontToBack) {
    const pid_t xlogo = session.start({"xlogo", "-geometry", "200x150+50+60"});
    session.start({"xeyes", "-geometry", "150x100+100+100"});
    ASSERT_TRUE(waitForTitles(*server, {"xlogo", "xeyes"}));
    const auto logo = entryTitled(server->windowList(), "xlogo");
    EXPECT_EQ(logo->ownerName, "XLogo");
    EXPECT_EQ(logo->ownerPID, xlogo);  // xlogo states no _NET_WM_PID: the server knows it
    EXPECT_EQ(logo->sharingState, 1);
    EXPECT_EQ(logo->bounds, (WindowRect{50, 60, 202, 152}));  // a border of 1
    const uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(c, logo->number, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    xcb_flush(c);
    EXPECT_TRUE(XvfbSession::waitFor([&] { return titles() == std::vector<std::string>{"xlogo", "xeyes"}; }));

    xcb_unmap_window(c, makeFilledWindow(c, 24, 10, 10, 50, 50, 0xff0000, "hidden"));
    const xcb_window_t inputOnly = xcb_generate_id(c);
    xcb_create_window(c, 0, inputOnly, session.root(), 0, 0, 100, 100, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_map_window(c, inputOnly);
    makeFilledWindow(c, 24, -300, -300, 100, 100, 0xff, "parked");
    makeFilledWindow(c, 24, 1200, 100, 100, 100, 0xff, "right of it");  // the screen is 1200 wide
    makeFilledWindow(c, 24, 1190, 790, 100, 100, 0xff, "corner");
    const xcb_window_t shown = makeFilledWindow(c, 24, 10, 10, 50, 50, 0x00ff00, "shown");
    setAtoms(shown, "_NET_WM_PID", XCB_ATOM_CARDINAL, {2});
    ASSERT_TRUE(waitForTitles(*server, {"shown", "corner"}));
    const auto list = server->windowList();
    EXPECT_EQ(titles(), (std::vector<std::string>{"shown", "corner", "xlogo", "xeyes"}));
    EXPECT_EQ(entryTitled(list, "corner")->bounds, (WindowRect{1190, 790, 100, 100}));
    EXPECT_EQ(list.front().ownerName, "x11_tests");
    EXPECT_EQ(list.front().ownerPID, getpid());
}

// Typed windows come under their system owners; override-redirect ones need
// a class or a type and stack above plain windows. Front to back, layers fall
// strictly along the list, so a sort by layer keeps the stacking.
TEST_F(Unmanaged, SystemWindowsAndPopUpsComeWithTheirOwnersAndLayers) {
    for (const auto& [type, title, y] : {std::tuple{"_NET_WM_WINDOW_TYPE_DOCK", "panel", 0},
                                         {"_NET_WM_WINDOW_TYPE_NOTIFICATION", "note", 100},
                                         {"_NET_WM_WINDOW_TYPE_DESKTOP", "background", 200}})
        setAtoms(makeFilledWindow(c, 24, 300, y, 80, 30, 0x123456, title), "_NET_WM_WINDOW_TYPE", XCB_ATOM_ATOM,
                 {internAtom(c, type)});
    const auto popUp = [&](const std::string& title, int y, const std::string& wmClass, const char* type) {
        const xcb_window_t w = makeFilledWindow(c, 24, 600, y, 80, 40, 0xabcdef, title);
        const uint32_t on = 1;
        xcb_unmap_window(c, w);
        xcb_change_window_attributes(c, w, XCB_CW_OVERRIDE_REDIRECT, &on);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            static_cast<uint32_t>(wmClass.size()), wmClass.data());
        if (type) setAtoms(w, "_NET_WM_WINDOW_TYPE", XCB_ATOM_ATOM, {internAtom(c, type)});
        xcb_map_window(c, w);
        xcb_flush(c);
    };
    popUp("bare", 10, "", nullptr);
    popUp("empty class", 60, std::string("\0\0", 2), nullptr);
    popUp("tooltip", 110, "", "_NET_WM_WINDOW_TYPE_TOOLTIP");
    popUp("classed", 160, std::string("menu\0Menu\0", 10), nullptr);
    ASSERT_TRUE(waitForTitles(*server, {"panel", "note", "Desktop", "tooltip", "classed"}));
    // Nothing stacks the desktop window at the back here; put it there.
    const uint32_t below = XCB_STACK_MODE_BELOW;
    xcb_configure_window(c, entryTitled(server->windowList(), "Desktop")->number, XCB_CONFIG_WINDOW_STACK_MODE, &below);
    xcb_flush(c);
    ASSERT_TRUE(XvfbSession::waitFor([&] { return titles().back() == "Desktop"; }));
    const auto list = server->windowList();
    EXPECT_EQ(titles(), (std::vector<std::string>{"classed", "tooltip", "note", "panel", "Desktop"}));
    EXPECT_EQ(list[0].layer, 101);  // no type: a pop-up menu's layer
    for (const auto& [title, owner, layer] : {std::tuple{"note", "SystemUIServer", 25},
                                              {"panel", "Dock", 20},
                                              {"Desktop", "Window Server", INT32_MIN + 20}}) {
        EXPECT_EQ(entryTitled(list, title)->ownerName, owner);
        EXPECT_EQ(entryTitled(list, title)->layer, layer);
    }
    for (size_t i = 1; i < list.size(); ++i) EXPECT_LT(list[i].layer, list[i - 1].layer) << *list[i].title;
}

// This test's own connection plays the window manager: it names a check
// window, and windows it makes without a client in them are its own: bars,
// unless they cover a whole monitor. Clients are those with WM_STATE, shown
// while it says so and they are on the current desktop or on all.
TEST_F(Unmanaged, UnderAManagerItsBarsAreSystemWindowsAndOnlyShownClientsAreListed) {
    const xcb_window_t check = xcb_generate_id(c);
    xcb_create_window(c, 0, check, session.root(), -10, -10, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT,
                      0, nullptr);
    for (xcb_window_t on : {session.root(), check}) setAtoms(on, "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW, {check});
    setAtoms(session.root(), "_NET_CURRENT_DESKTOP", XCB_ATOM_CARDINAL, {0});
    makeFilledWindow(c, 24, 0, 0, 1200, 800, 0x000000, "guard");
    makeFilledWindow(c, 24, 0, 780, 1200, 20, 0x333333, "toolbar");
    makeFilledWindow(c, 24, -100, -100, 1, 1, 0x333333, "parked");
    session.start({"xlogo", "-geometry", "200x150+50+60"});  // never managed: no WM_STATE
    const xcb_window_t managed = makeFilledWindow(c, 24, 400, 300, 100, 100, 0xff0000, "managed");
    const xcb_atom_t wmState = internAtom(c, "WM_STATE");
    setAtoms(managed, "WM_STATE", wmState, {1, XCB_NONE});
    ASSERT_TRUE(waitForTitles(*server, {"toolbar", "managed"}));
    ASSERT_TRUE(XvfbSession::waitFor([&] {
        return session.run({"xwininfo", "-root", "-children"}).find("xlogo") != std::string::npos;
    }));
    const auto list = server->windowList();
    EXPECT_EQ(titles(), (std::vector<std::string>{"managed", "toolbar"}));
    EXPECT_EQ(list[1].ownerName, "Dock");
    EXPECT_EQ(list[1].bounds, (WindowRect{0, 780, 1200, 20}));

    const auto listed = [&](bool expected) {
        return XvfbSession::waitFor(
            [&] { return entryTitled(server->windowList(), "managed").has_value() == expected; });
    };
    setAtoms(managed, "WM_STATE", wmState, {3, XCB_NONE});  // iconic
    EXPECT_TRUE(listed(false));
    setAtoms(managed, "WM_STATE", wmState, {1, XCB_NONE});
    EXPECT_TRUE(listed(true));
    setAtoms(managed, "_NET_WM_DESKTOP", XCB_ATOM_CARDINAL, {2});
    EXPECT_TRUE(listed(false));
    setAtoms(managed, "_NET_WM_DESKTOP", XCB_ATOM_CARDINAL, {0xFFFFFFFF});  // on every desktop
    EXPECT_TRUE(listed(true));
}

}  // namespace
}  // namespace pv::test
