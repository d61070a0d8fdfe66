// Pictures of real windows: whole when covered or cut by the screen edge,
// equal to what xwd sees of the uncovered window, alpha where the window has it.
#include <gtest/gtest.h>
#include <xcb/shape.h>

#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

constexpr int kScreenWidth = 1400;

class ManagedPictures : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        session = new XvfbSession(XvfbOptions{kScreenWidth, 900, true, {}});
        session->start({"xlogo", "-geometry", "200x150+50+60"});
        // Rectangular: outside a shape the picture is transparent where xwd shows whatever lies there.
        session->start({"xeyes", "+shape", "-geometry", "150x100+600+80"});
        session->start({"xterm", "-geometry", "40x8+100+400", "-title", "terminal", "-e", "sh", "-c",
                        "echo a terminal with some text; exec sleep 600"});
        std::string error;
        server = X11WindowServer::connect(session->display(), &error).release();
        ASSERT_NE(server, nullptr) << error;
        ASSERT_TRUE(waitForTitles(*server, {"xlogo", "xeyes", "terminal"}));
        for (const auto& e : server->windowList()) ASSERT_TRUE(waitUntilDrawn(*server, e.number));
    }
    static void TearDownTestSuite() {
        delete server;
        delete session;
    }

    static const WindowListEntry& entry(const std::string& title) {
        static WindowListEntry found;
        const auto e = entryTitled(server->windowList(), title);
        if (!e) throw std::runtime_error("no window " + title);
        found = *e;
        return found;
    }
    static void moveTo(const std::string& title, int x, int y) {
        const uint32_t client = entry(title).number;
        session->run({"xdotool", "windowmove", "--sync", std::to_string(client), std::to_string(x),
                      std::to_string(y)});
        ASSERT_TRUE(XvfbSession::waitFor([&] { return entry(title).bounds.x == x && entry(title).bounds.y == y; }));
    }
    static Image reference(const std::string& title) {
        auto image = xwdPicture(*session, topLevelOf(session->connection(), entry(title).number));
        if (!image) throw std::runtime_error("xwd failed");
        return *image;
    }

    static inline XvfbSession* session = nullptr;
    static inline X11WindowServer* server = nullptr;
};

TEST_F(ManagedPictures, EachPictureEqualsXwdOfTheUncoveredFrame) {
    for (const std::string title : {"xlogo", "xeyes", "terminal"}) {
        SCOPED_TRACE(title);
        const WindowListEntry& e = entry(title);
        const Image expected = reference(title);
        const auto picture = server->windowPicture(std::nullopt, e.number, false);
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->width, e.bounds.width);
        EXPECT_EQ(picture->height, e.bounds.height);
        EXPECT_EQ(differingPixels(*picture, expected), 0);
    }
}

TEST_F(ManagedPictures, CoveredWindowsAndWindowsPastTheScreenEdgeAreCapturedWhole) {
    const Image uncovered = reference("xlogo");
    const WindowRect logo = entry("xlogo").bounds;
    moveTo("xeyes", static_cast<int>(logo.x + logo.width / 2), static_cast<int>(logo.y));
    activateWindow(session->connection(), entry("xeyes").number);
    ASSERT_TRUE(XvfbSession::waitFor([&] { return indexOfTitle(server->windowList(), "xeyes") == 0; }));

    // The screen shows xeyes over the right half of xlogo ...
    const auto screen = server->desktopPicture();
    ASSERT_TRUE(screen);
    const Image seen = cropped(*screen, static_cast<int>(logo.x), static_cast<int>(logo.y),
                               static_cast<int>(logo.width), static_cast<int>(logo.height));
    EXPECT_GT(differingPixels(seen, uncovered), 1000);
    // ... and the picture of xlogo is still all of xlogo.
    const auto picture = server->windowPicture(std::nullopt, entry("xlogo").number, false);
    ASSERT_TRUE(picture);
    EXPECT_EQ(differingPixels(*picture, uncovered), 0);
    moveTo("xeyes", 600, 80);

    // Past the screen's edge, too.
    const Image inside = reference("terminal");
    moveTo("terminal", kScreenWidth - 60, 400);
    const auto cut = server->windowPicture(std::nullopt, entry("terminal").number, false);
    ASSERT_TRUE(cut);
    EXPECT_EQ(differingPixels(*cut, inside), 0);
    moveTo("terminal", 100, 400);
}

TEST_F(ManagedPictures, SharedMemoryAndPlainRequestsReadTheSamePixelsOfWindowsAndTheScreen) {
    ASSERT_TRUE(server->usesSharedMemory());  // a local Xvfb offers MIT-SHM
    const uint32_t number = entry("xlogo").number;
    const auto shared = server->windowPicture(std::nullopt, number, false);
    server->setSharedMemory(false);
    EXPECT_FALSE(server->usesSharedMemory());
    const auto requested = server->windowPicture(std::nullopt, number, false);
    const auto screen = server->desktopPicture();
    server->setSharedMemory(true);
    ASSERT_TRUE(shared && requested && screen);
    EXPECT_EQ(differingPixels(*shared, *requested), 0);
    EXPECT_EQ(differingPixels(*screen, *server->desktopPicture()), 0);

    // The desktop picture is the whole screen with its windows.
    EXPECT_EQ(screen->width, kScreenWidth);
    EXPECT_EQ(screen->height, 900);
    const WindowListEntry& e = entry("terminal");
    const auto window = server->windowPicture(std::nullopt, e.number, false);
    ASSERT_TRUE(window);
    const Image seen = cropped(*screen, static_cast<int>(e.bounds.x), static_cast<int>(e.bounds.y), window->width,
                               window->height);
    EXPECT_EQ(differingPixels(seen, *window), 0);
}

TEST_F(ManagedPictures, GivenBoundsTakeThatRectangleOfTheWindow) {
    const WindowListEntry& e = entry("xlogo");
    const auto whole = server->windowPicture(std::nullopt, e.number, false);
    ASSERT_TRUE(whole);
    const WindowRect grown = e.bounds.insetBy(-10, -10);
    const auto picture = server->windowPicture(grown, e.number, false);
    ASSERT_TRUE(picture);
    ASSERT_EQ(picture->width, whole->width + 20);
    ASSERT_EQ(picture->height, whole->height + 20);
    EXPECT_EQ(differingPixels(cropped(*picture, 10, 10, whole->width, whole->height), *whole), 0);
    EXPECT_EQ(picture->row(0)[3], 0);  // outside the window: transparent

    const WindowRect leftHalf{e.bounds.x, e.bounds.y, e.bounds.width / 2, e.bounds.height};
    const auto half = server->windowPicture(leftHalf, e.number, false);
    ASSERT_TRUE(half);
    EXPECT_EQ(differingPixels(*half, cropped(*whole, 0, 0, half->width, half->height)), 0);
    EXPECT_FALSE(server->windowPicture(WindowRect{e.bounds.x - 50, e.bounds.y, 20, 20}, e.number, false));
}

class UnmanagedPictures : public ::testing::Test {
protected:
    void SetUp() override {
        session = std::make_unique<XvfbSession>(XvfbOptions{800, 600, false, {}});
        std::string error;
        server = X11WindowServer::connect(session->display(), &error);
        ASSERT_NE(server, nullptr) << error;
    }
    std::unique_ptr<XvfbSession> session;
    std::unique_ptr<X11WindowServer> server;
};

TEST_F(UnmanagedPictures, AlphaIsKeptForArgbWindowsAndOutsideAShapeOpaqueOtherwise) {
    xcb_connection_t* c = session->connection();
    // Premultiplied half-transparent red, as ARGB clients draw it.
    const xcb_window_t argb = makeFilledWindow(c, 32, 20, 20, 60, 40, 0x80800000, "argb");
    const xcb_window_t rgb = makeFilledWindow(c, 24, 200, 20, 60, 40, 0x0000ff00, "rgb");
    ASSERT_TRUE(waitForTitles(*server, {"argb", "rgb"}));
    const auto translucent = server->windowPicture(std::nullopt, argb, false);
    const auto opaque = server->windowPicture(std::nullopt, rgb, false);
    ASSERT_TRUE(translucent && opaque);
    EXPECT_EQ(differingPixels(*translucent, Image::filled(60, 40, 255, 0, 0, 128)), 0);
    EXPECT_EQ(differingPixels(*opaque, Image::filled(60, 40, 0, 255, 0, 255)), 0);

    // Outside a shaped window's shape the picture is transparent.
    const xcb_window_t w = makeFilledWindow(c, 24, 20, 120, 60, 40, 0x0000ff, "shaped");
    const xcb_rectangle_t leftHalf{0, 0, 30, 40};
    xcb_shape_rectangles(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED, w, 0, 0, 1, &leftHalf);
    xcb_flush(c);
    ASSERT_TRUE(waitForTitles(*server, {"shaped"}));
    const auto picture = server->windowPicture(std::nullopt, w, false);
    ASSERT_TRUE(picture);
    EXPECT_EQ(differingPixels(cropped(*picture, 0, 0, 30, 40), Image::filled(30, 40, 0, 0, 255, 255)), 0);
    EXPECT_EQ(differingPixels(cropped(*picture, 30, 0, 30, 40), Image(30, 40)), 0);
}

TEST_F(UnmanagedPictures, WindowsGoneOrResizedSinceTheListAreTakenAsTheyAreNow) {
    xcb_connection_t* c = session->connection();
    const xcb_window_t destroyed = makeFilledWindow(c, 24, 20, 20, 60, 40, 0xff, "destroyed");
    const xcb_window_t unmapped = makeFilledWindow(c, 24, 120, 20, 60, 40, 0xff, "unmapped");
    const pid_t eyes = session->start({"xeyes", "-geometry", "100x80+300+300"});
    ASSERT_TRUE(waitForTitles(*server, {"destroyed", "unmapped", "xeyes"}));
    const auto list = server->windowList();

    xcb_destroy_window(c, destroyed);
    xcb_unmap_window(c, unmapped);
    xcb_flush(c);
    session->stop(eyes);
    free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));

    for (const auto& e : list) EXPECT_FALSE(server->windowPicture(std::nullopt, e.number, false)) << *e.title;
    EXPECT_TRUE(server->windowList().empty());

    // A window resized since the list is taken as it is now.
    const xcb_window_t w = makeFilledWindow(c, 24, 20, 20, 100, 80, 0xffffff, "resized");
    ASSERT_TRUE(waitForTitles(*server, {"resized"}));
    const uint32_t size[] = {140, 90};
    xcb_configure_window(c, w, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    const auto picture = server->windowPicture(std::nullopt, w, false);
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->width, 140);
    EXPECT_EQ(picture->height, 90);
}

}  // namespace
}  // namespace pv::test
