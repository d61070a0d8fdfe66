// A display that goes away ends every call with PlatformError, never a crash;
// one that never answers, or dies while we connect, is a failed connection.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "cli/commands.h"
#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

struct UnixAddress {
    UnixAddress(const std::string& path, bool abstract) {
        std::memcpy(address.sun_path + (abstract ? 1 : 0), path.data(), path.size());
        length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + (abstract ? 1 : 0));
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
    sockaddr_un address{AF_UNIX, {}};
    socklen_t length;
};

// A display of its own that passes one connection on to a session's server
// and hangs up once the server has sent `budget` bytes after the connection
// setup: a server that dies while a client connects.
class DyingDisplay {
public:
    DyingDisplay(const std::string& serverDisplay, size_t budget) {
        // An abstract socket named like a display's, where clients look first.
        for (int n = 600; n < 700 && display.empty(); ++n) {
            const UnixAddress address("/tmp/.X11-unix/X" + std::to_string(n), true);
            if (::bind(listener_, address.get(), address.length) == 0) display = ":" + std::to_string(n);
        }
        if (display.empty() || ::listen(listener_, 1) != 0) throw std::runtime_error("no free display number");
        thread_ = std::thread([this, budget, to = "/tmp/.X11-unix/X" + serverDisplay.substr(1)] { serve(to, budget); });
    }
    ~DyingDisplay() {
        stop_ = true;
        thread_.join();
        ::close(listener_);
    }
    std::string display;

private:
    void serve(const std::string& serverSocket, size_t budget) {
        pollfd waiting{listener_, POLLIN, 0};
        while (!stop_ && ::poll(&waiting, 1, 50) == 0) {
        }
        if (stop_) return;
        const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const UnixAddress to(serverSocket, false);
        // The server's bytes that may pass: its setup reply (whose length its
        // first 8 bytes give) and then the budget.
        std::vector<uint8_t> head;
        size_t allowed = SIZE_MAX;
        bool open = client >= 0 && ::connect(server, to.get(), to.length) == 0;
        while (open && !stop_) {
            pollfd fds[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
            if (::poll(fds, 2, 50) <= 0) continue;
            uint8_t buffer[4096];
            if (fds[0].revents) {
                const ssize_t n = ::read(client, buffer, sizeof buffer);
                open = n > 0 && ::write(server, buffer, static_cast<size_t>(n)) == n;
            }
            if (open && fds[1].revents) {
                ssize_t n = ::read(server, buffer, sizeof buffer);
                for (ssize_t i = 0; i < n && head.size() < 8; ++i) head.push_back(buffer[i]);
                if (allowed == SIZE_MAX && head.size() == 8)
                    allowed = 8 + 4 * static_cast<size_t>(head[6] | head[7] << 8) + budget;
                n = std::min(n, static_cast<ssize_t>(std::min(allowed, sizeof buffer)));
                open = n > 0 && ::write(client, buffer, static_cast<size_t>(n)) == n;
                if (allowed != SIZE_MAX) allowed -= static_cast<size_t>(std::max<ssize_t>(n, 0));
                open = open && allowed != 0;
            }
        }
        ::shutdown(client, SHUT_RDWR);
        ::close(client);
        ::close(server);
    }

    int listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

TEST(DisplayLoss, EveryCallThrowsOnceTheServerIsGone) {
    XvfbSession session(XvfbOptions{800, 600});
    makeFilledWindow(session.connection(), 24, 10, 10, 100, 100, 0xff, "window");
    std::string error;
    auto server = X11WindowServer::connect(session.display(), &error);
    ASSERT_TRUE(server) << error;
    ASSERT_TRUE(waitForTitles(*server, {"window"}));
    const uint32_t window = server->windowList().at(0).number;
    const uint32_t displayId = server->screenList().at(0).displayId;

    session.killServer();

    const std::vector<std::function<void()>> calls{
        [&] { server->windowList(); },
        [&] { server->screenList(); },
        [&] { server->productName(displayId); },
        [&] {
            server->displaysOfRect(WindowRect{0, 0, 10, 10}, 2);
        },
        [&] { server->windowPicture(std::nullopt, window, false); },
        [&] {
            server->windowPicture(WindowRect{0, 0, 10, 10}, window, false);
        },
        [&] { server->desktopPicture(); },
    };
    for (size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(i);
        try {
            calls[i]();
            ADD_FAILURE() << "no PlatformError";
        } catch (const PlatformError& e) {
            EXPECT_STREQ(e.what(), "X display connection lost");
        }
    }
}

TEST(DisplayLoss, AServerDyingWhileWeConnectIsAFailedConnectionNeverAnEscapingError) {
    XvfbSession session(XvfbOptions{320, 200});
    bool refusedOnce = false;
    // The server hangs up at once after the setup, while we set up, or after.
    for (size_t budget = 0; budget <= 2400; budget += 120) {
        SCOPED_TRACE(budget);
        DyingDisplay dying(session.display(), budget);
        std::string error;
        std::unique_ptr<X11WindowServer> server;
        ASSERT_NO_THROW(server = X11WindowServer::connect(dying.display, &error));
        if (!server) {
            refusedOnce = true;
            EXPECT_EQ(error.rfind("cannot open X display " + dying.display + ": ", 0), 0u) << error;
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
    setenv("DISPLAY", dying.display.c_str(), 1);
    testing::internal::CaptureStderr();
    const int code = cli::runList({});
    const std::string err = testing::internal::GetCapturedStderr();
    unsetenv("DISPLAY");
    EXPECT_EQ(code, 1);
    EXPECT_EQ(err, "plenavue list: cannot open X display " + dying.display + ": X display connection lost\n");
}

TEST(DisplayLoss, NoServerMeansNoWindowServerAndAReason) {
    // An empty name means $DISPLAY, cleared here.
    unsetenv("DISPLAY");
    for (const auto& [name, reason] : {std::pair<std::string, std::string>{":4711", "cannot open X display :4711: "},
                                       {"not a display", "cannot open X display not a display: "},
                                       {"", "cannot open X display (none): DISPLAY is not set"}}) {
        std::string error;
        EXPECT_EQ(X11WindowServer::connect(name, &error), nullptr);
        EXPECT_EQ(error.rfind(reason, 0), 0u) << error;
    }
}

}  // namespace
}  // namespace pv::test
