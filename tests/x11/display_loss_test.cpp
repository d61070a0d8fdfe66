// A display that goes away ends every call with PlatformError, never a crash.
#include <gtest/gtest.h>

#include "cli/commands.h"
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

TEST(DisplayLoss, AServerDyingWhileWeConnectIsAFailedConnectionNeverAnEscapingError) {
    XvfbSession session(XvfbOptions{320, 200, false, {}});
    bool refusedOnce = false;
    // The server hangs up at once after the setup, while we set up, or after.
    for (size_t budget = 0; budget <= 2400; budget += 120) {
        SCOPED_TRACE(budget);
        DyingDisplay dying(session.display(), budget);
        std::string error;
        std::unique_ptr<X11WindowServer> server;
        ASSERT_NO_THROW(server = X11WindowServer::connect(dying.display(), &error));
        if (!server) {
            refusedOnce = true;
            EXPECT_EQ(error.rfind("cannot open X display " + dying.display() + ": ", 0), 0u) << error;
            EXPECT_EQ(error.find('\n'), std::string::npos) << error;
            continue;
        }
        // Set up before the hang-up: a later call finds the display gone.
        bool lost = false;
        for (int call = 0; call < 1000 && !lost; ++call) {
            try {
                server->windowList();
            } catch (const PlatformError&) {
                lost = true;
            }
        }
        EXPECT_TRUE(lost);
    }
    EXPECT_TRUE(refusedOnce);

    // The command line says so in one line and exits 1.
    DyingDisplay dying(session.display(), 0);
    setenv("DISPLAY", dying.display().c_str(), 1);
    testing::internal::CaptureStderr();
    const int code = cli::runList({});
    const std::string err = testing::internal::GetCapturedStderr();
    unsetenv("DISPLAY");
    EXPECT_EQ(code, 1);
    EXPECT_EQ(err, "plenavue list: cannot open X display " + dying.display() + ": X display connection lost\n");
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
