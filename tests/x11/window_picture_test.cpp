// Pictures of real windows: whole when covered or cut by the screen edge,
// equal to what xwd sees of the uncovered window, the same through shared
// memory and plain requests, alpha where the window has it, and taken as the
// windows are now. (Framed windows under real managers: the desktop matrix.)
#include <gtest/gtest.h>
#include <xcb/shape.h>

#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

class Pictures : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        server = X11WindowServer::connect(session.display(), &error);
        ASSERT_NE(server, nullptr) << error;
    }
    // Moves or resizes a window and waits until the server has done it.
    void configure(xcb_window_t w, uint16_t mask, std::vector<uint32_t> values) {
        xcb_configure_window(c, w, mask, values.data());
        free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    }

    XvfbSession session{XvfbOptions{800, 600}};
    xcb_connection_t* c = session.connection();
    std::unique_ptr<X11WindowServer> server;
};

TEST_F(Pictures, AWindowComesWholeCoveredOrPastTheScreenEdgeAndAsTheScreenShowsItUncovered) {
    session.start({"xlogo", "-geometry", "200x150+50+60"});
    ASSERT_TRUE(waitForTitles(*server, {"xlogo"}));
    const WindowListEntry logo = *entryTitled(server->windowList(), "xlogo");
    ASSERT_TRUE(waitUntilDrawn(*server, logo.number));
    const auto uncovered = xwdPicture(session, logo.number);
    const auto whole = server->windowPicture(std::nullopt, logo.number, false);
    ASSERT_TRUE(uncovered && whole);
    EXPECT_EQ(whole->width, 202);  // with its border
    EXPECT_EQ(differingPixels(*whole, *uncovered), 0);

    // Shared memory (a local Xvfb offers it) and plain requests read the same
    // pixels, and the desktop picture is the whole screen with its windows.
    ASSERT_TRUE(server->usesSharedMemory());
    server->setSharedMemory(false);
    const auto requested = server->windowPicture(std::nullopt, logo.number, false);
    const auto screen = server->desktopPicture();
    server->setSharedMemory(true);
    ASSERT_TRUE(requested && screen);
    EXPECT_EQ(differingPixels(*requested, *whole), 0);
    EXPECT_EQ(differingPixels(*screen, *server->desktopPicture()), 0);
    EXPECT_EQ(screen->width, 800);
    EXPECT_EQ(differingPixels(cropped(*screen, 50, 60, 202, 152), *whole), 0);

    // Given bounds take that rectangle of the window, transparent outside it.
    const auto grown = server->windowPicture(logo.bounds.insetBy(-10, -10), logo.number, false);
    ASSERT_TRUE(grown);
    ASSERT_EQ(grown->width, whole->width + 20);
    EXPECT_EQ(differingPixels(cropped(*grown, 10, 10, whole->width, whole->height), *whole), 0);
    EXPECT_EQ(grown->row(0)[3], 0);
    const auto half =
        server->windowPicture(WindowRect{logo.bounds.x, logo.bounds.y, 101, logo.bounds.height}, logo.number, false);
    ASSERT_TRUE(half);
    EXPECT_EQ(differingPixels(*half, cropped(*whole, 0, 0, 101, 152)), 0);
    EXPECT_FALSE(server->windowPicture(WindowRect{logo.bounds.x - 50, logo.bounds.y, 20, 20}, logo.number, false));

    // Another window over its right half: the screen shows that, the picture all of xlogo.
    makeFilledWindow(c, 24, 150, 60, 200, 150, 0xff0000, "cover");
    ASSERT_TRUE(waitForTitles(*server, {"cover"}));
    EXPECT_GT(differingPixels(cropped(*server->desktopPicture(), 50, 60, 202, 152), *whole), 1000);
    EXPECT_EQ(differingPixels(*server->windowPicture(std::nullopt, logo.number, false), *whole), 0);
    // Past the screen's edge, too.
    configure(logo.number, XCB_CONFIG_WINDOW_X, {740});
    EXPECT_EQ(differingPixels(*server->windowPicture(std::nullopt, logo.number, false), *whole), 0);
}

TEST_F(Pictures, AlphaIsKeptForArgbWindowsOutsideAShapeAndWindowsAreTakenAsTheyAreNow) {
    // Premultiplied half-transparent red, as ARGB clients draw it.
    const xcb_window_t argb = makeFilledWindow(c, 32, 20, 20, 60, 40, 0x80800000, "argb");
    const xcb_window_t rgb = makeFilledWindow(c, 24, 200, 20, 60, 40, 0x0000ff00, "rgb");
    // Outside a shaped window's shape the picture is transparent.
    const xcb_window_t shaped = makeFilledWindow(c, 24, 20, 120, 60, 40, 0x0000ff, "shaped");
    const xcb_rectangle_t leftHalf{0, 0, 30, 40};
    xcb_shape_rectangles(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED, shaped, 0, 0, 1,
                         &leftHalf);
    xcb_flush(c);
    ASSERT_TRUE(waitForTitles(*server, {"argb", "rgb", "shaped"}));
    const auto translucent = server->windowPicture(std::nullopt, argb, false);
    const auto opaque = server->windowPicture(std::nullopt, rgb, false);
    const auto shape = server->windowPicture(std::nullopt, shaped, false);
    ASSERT_TRUE(translucent && opaque && shape);
    EXPECT_EQ(differingPixels(*translucent, Image::filled(60, 40, 255, 0, 0, 128)), 0);
    EXPECT_EQ(differingPixels(*opaque, Image::filled(60, 40, 0, 255, 0, 255)), 0);
    EXPECT_EQ(differingPixels(cropped(*shape, 0, 0, 30, 40), Image::filled(30, 40, 0, 0, 255, 255)), 0);
    EXPECT_EQ(differingPixels(cropped(*shape, 30, 0, 30, 40), Image(30, 40)), 0);

    // Destroyed and unmapped since the list: no picture; resized: as it is now.
    xcb_destroy_window(c, argb);
    xcb_unmap_window(c, rgb);
    configure(shaped, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, {140, 90});
    EXPECT_FALSE(server->windowPicture(std::nullopt, argb, false));
    EXPECT_FALSE(server->windowPicture(std::nullopt, rgb, false));
    const auto resized = server->windowPicture(std::nullopt, shaped, false);
    ASSERT_TRUE(resized);
    EXPECT_EQ(resized->width, 140);
    EXPECT_EQ(resized->height, 90);
    EXPECT_EQ(server->windowList().size(), 1u);
}

}  // namespace
}  // namespace pv::test
