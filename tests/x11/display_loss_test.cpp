// A display that goes away ends every call with PlatformError, never a crash.
#include <gtest/gtest.h>

#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

TEST(DisplayLoss, EveryCallThrowsOnceTheServerIsGone) {
    XvfbSession session(XvfbOptions{800, 600, false, {}});
    session.start({"xlogo", "-geometry", "100x100+10+10"});
    std::string error;
    auto server = X11WindowServer::connect(session.display(), &error);
    ASSERT_TRUE(server) << error;
    ASSERT_TRUE(waitForTitles(*server, {"xlogo"}));
    const auto list = server->windowList();
    const uint32_t displayId = server->screenList().at(0).displayId;

    session.killServer();

    auto expectLost = [](auto&& call) {
        try {
            call();
            ADD_FAILURE() << "no PlatformError";
        } catch (const PlatformError& e) {
            EXPECT_STREQ(e.what(), "X display connection lost");
        }
    };
    expectLost([&] { server->windowList(); });
    expectLost([&] { server->screenList(); });
    expectLost([&] { server->productName(displayId); });
    expectLost([&] { server->displaysOfRect(WindowRect{0, 0, 10, 10}, 2); });
    expectLost([&] { server->windowPicture(std::nullopt, list.at(0).number, false); });
    expectLost([&] { server->windowPicture(WindowRect{0, 0, 10, 10}, list.at(0).number, false); });
    expectLost([&] { server->desktopPicture(); });
}

TEST(DisplayLoss, NoServerMeansNoWindowServerAndAReason) {
    std::string error;
    EXPECT_EQ(X11WindowServer::connect(":4711", &error), nullptr);
    EXPECT_EQ(error.rfind("cannot open X display :4711: ", 0), 0u) << error;
    EXPECT_EQ(X11WindowServer::connect("not a display", &error), nullptr);
    EXPECT_EQ(error.rfind("cannot open X display not a display: ", 0), 0u) << error;
    // An empty name means $DISPLAY, which the tests always clear.
    EXPECT_EQ(X11WindowServer::connect("", &error), nullptr);
    EXPECT_NE(error.find("DISPLAY is not set"), std::string::npos) << error;
}

}  // namespace
}  // namespace pv::test
