// The GNOME backend against GNOME Shell itself, through our extension, in one
// headless session shared by the suite (tests/support/gnome-session.sh): a
// Wayland and an X test window, the list and its stacking, a covered window
// whole at its frame, the pictures and the merged image in agreement, our own
// windows left out, another program refused by the extension, a capture from
// the command line, and the shell going away (last: it ends the session).
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "platform/gnome/gnome_window_server.h"
#include "tests/support/compositor_session.h"
#include "tests/support/psd_tools.h"

using namespace pv;
using namespace pv::test;
using namespace std::chrono_literals;

namespace {

constexpr Pixel kRed{255, 0, 0, 255}, kGreen{0, 255, 0, 255}, kBlack{0, 0, 0, 255};

int count(const Image& image, const Pixel& colour) {
    int n = 0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) n += pixelAt(image, x, y) == colour;
    return n;
}

class GnomeBackend : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        test::CompositorSessionOptions options;
        options.launcher = "gnome-session.sh";
        options.launcherArgs = {"--extension", PV_GNOME_EXTENSION};
        session_ = new CompositorSession(options);
        session_->startTestWindow("Red", "#ff0000", "#0000ff", "300x200", false, "pv-red");
        green_ = session_->startTestWindow("Green X", "#00ff00", "#00ff00", "400x300", true);
    }
    static void TearDownTestSuite() {
        delete session_;
        session_ = nullptr;
    }

    std::unique_ptr<GnomeWindowServer> connect(int32_t ownPid = 0) {
        GnomeWindowServer::Options o;
        o.busAddress = session_->env("DBUS_SESSION_BUS_ADDRESS");
        o.ownPid = ownPid;
        std::string error;
        auto server = GnomeWindowServer::connect(o, &error);
        EXPECT_TRUE(server) << error;
        return server;
    }

    static std::map<std::string, WindowListEntry> listed(GnomeWindowServer& server) {
        return listedByTitle(server, {"Red", "Green X"});
    }

    // Raises and focuses a window through the extension (this test program is
    // one it serves), then waits until the list says so.
    static void raise(GnomeWindowServer& server, const std::string& title) {
        const WindowListEntry w = listed(server)[title];
        auto bus = QDBusConnection::connectToBus(QString::fromStdString(session_->env("DBUS_SESSION_BUS_ADDRESS")),
                                                 "pv-gnome-tests");
        auto m = QDBusMessage::createMethodCall("com.veltrano.Plenavue.Shell", "/com/veltrano/Plenavue/Shell",
                                                "com.veltrano.Plenavue.Shell1", "ActivateWindow");
        m.setArguments({QVariant::fromValue(qulonglong(w.handle.id))});
        const QDBusMessage reply = bus.call(m);
        ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        ASSERT_TRUE(CompositorSession::waitFor([&] { return titlesFrontToBack(server).front() == title; }));
    }

    // Green moved over the middle of Red; the centre of their overlap.
    static std::pair<int, int> overlap(GnomeWindowServer& server) {
        auto windows = listed(server);
        const WindowRect red = windows["Red"].bounds;
        if (!windows["Green X"].bounds.intersects(red)) {
            session_->run({"xdotool", "search", "--sync", "--name", "^Green X$", "windowmove", "%@",
                           std::to_string(int(red.x + red.width / 2)), std::to_string(int(red.y + red.height / 2))});
            EXPECT_TRUE(CompositorSession::waitFor([&] { return listed(server)["Green X"].bounds.intersects(red); }));
        }
        const WindowRect green = listed(server)["Green X"].bounds;
        return {int(green.x + (red.x + red.width - green.x) / 2), int(green.y + (red.y + red.height - green.y) / 2)};
    }

    // Presses one combination (evdev key codes) through Mutter's remote
    // desktop service, as a keyboard would.
    static void press(const std::vector<uint>& codes) {
        auto bus = QDBusConnection::connectToBus(QString::fromStdString(session_->env("DBUS_SESSION_BUS_ADDRESS")),
                                                 "pv-gnome-tests");
        auto call = [&](const QString& path, const QString& method, const QList<QVariant>& args = {}) {
            auto m = QDBusMessage::createMethodCall("org.gnome.Mutter.RemoteDesktop", path,
                                                    "org.gnome.Mutter.RemoteDesktop" + method.section(' ', 0, 0),
                                                    method.section(' ', 1));
            m.setArguments(args);
            const QDBusMessage reply = bus.call(m);
            EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
            return reply.arguments().value(0);
        };
        const QString at =
            qdbus_cast<QDBusObjectPath>(call("/org/gnome/Mutter/RemoteDesktop", " CreateSession")).path();
        call(at, ".Session Start");
        for (uint c : codes) call(at, ".Session NotifyKeyboardKeycode", {c, true});
        for (auto c = codes.rbegin(); c != codes.rend(); ++c) call(at, ".Session NotifyKeyboardKeycode", {*c, false});
        call(at, ".Session Stop");
    }

    static CompositorSession* session_;
    static pid_t green_;
};
CompositorSession* GnomeBackend::session_ = nullptr;
pid_t GnomeBackend::green_ = 0;

}  // namespace

TEST_F(GnomeBackend, ListsEachWindowOnceInStackingOrderWithItsApplicationAndScreen) {
    auto server = connect();
    ASSERT_TRUE(server);
    auto windows = listed(*server);
    const auto entries = server->windowList();
    EXPECT_EQ(entries.size(), 2u);  // the shell's own helper window is left out
    for (size_t i = 1; i < entries.size(); ++i) EXPECT_LT(entries[i].layer, entries[i - 1].layer);
    EXPECT_EQ(windows["Green X"].ownerPID, green_);
    EXPECT_EQ(windows["Red"].ownerName, "pv-red");
    EXPECT_GT(windows["Red"].handle.id, 0u);
    for (const char* title : {"Red", "Green X"}) {
        EXPECT_EQ(windows[title].sharingState, 1);
        EXPECT_GE(windows[title].bounds.width, 300);
    }
    const auto screens = server->screenList();
    ASSERT_EQ(screens.size(), 1u);
    EXPECT_EQ(screens[0].frame, (ScreenRect{0, 0, 1280, 800}));
    EXPECT_FALSE(server->checkAccess()) << server->checkAccess().line();
}

TEST_F(GnomeBackend, StackingFollowsTheWindowRaisedCoveredWindowsComeOutWholeAndOursAreLeftOut) {
    auto server = connect();
    ASSERT_TRUE(server);
    const auto [x, y] = overlap(*server);
    for (const auto& [front, back, colour] :
         {std::tuple{"Red", "Green X", kRed}, std::tuple{"Green X", "Red", kGreen}}) {
        SCOPED_TRACE(front);
        raise(*server, front);
        EXPECT_EQ(titlesFrontToBack(*server), (std::vector<std::string>{front, back}));
        // The shell restacks its actors when it next paints.
        EXPECT_TRUE(CompositorSession::waitFor([&, x = x, y = y, colour = colour] {
            const auto desktop = server->desktopPicture();
            return desktop && pixelAt(*desktop, x, y) == colour;
        }));
    }

    auto windows = listed(*server);
    const auto results = server->takePictures(
        {pictureOf(windows["Red"]), pictureOf(windows["Red"], true), pictureOf(windows["Green X"])}, 10s);
    for (const auto& r : results) ASSERT_TRUE(r.picture) << r.failure.line();
    // All of the covered window at its frame: its fill everywhere inside the border.
    const WindowPicture& red = *results[0].picture;
    EXPECT_EQ(red.placement, windows["Red"].bounds);
    EXPECT_EQ(red.image.width, int(windows["Red"].bounds.width));
    EXPECT_EQ(red.image.height, int(windows["Red"].bounds.height));
    EXPECT_GE(count(red.image, kRed), (300 - 40) * (200 - 40));
    EXPECT_EQ(count(red.image, kGreen), 0);
    const auto desktop = server->desktopPicture();
    ASSERT_TRUE(desktop);
    expectPicturesAgree(red, *results[1].picture, *results[2].picture, windows["Green X"].bounds, *desktop, 400 * 300);

    // Green as our own window: the merged image shows what is behind it.
    auto ours = connect(green_);
    ASSERT_TRUE(ours);
    windows = listed(*ours);
    EXPECT_EQ(windows["Green X"].sharingState, 0);
    EXPECT_EQ(windows["Red"].sharingState, 1);
    const auto without = ours->desktopPicture();
    ASSERT_TRUE(without);
    const WindowRect green = windows["Green X"].bounds;
    EXPECT_EQ(pixelAt(*without, x, y), kRed);  // theirs, behind ours
    EXPECT_EQ(pixelAt(*without, int(green.x + green.width) - 20, int(green.y + green.height) - 20), kBlack);
}

TEST_F(GnomeBackend, TheCommandLineWritesEveryWindowOnceAndAnotherProgramIsRefused) {
    const std::string file = session_->env("PV_SESSION_DIR") + "/capture.psd";
    std::string out, err;
    ASSERT_EQ(session_->run({PLENAVUE_BINARY, "capture", "-q", "--format", "grouped", "--file", file}, &out, &err), 0)
        << err;
    auto server = connect();
    ASSERT_TRUE(server);
    std::vector<std::string> expected = titlesFrontToBack(*server), names;
    if (test::psdToolsAvailable()) {
        for (const auto& layer : test::pixelLayersOf(test::psdToolsDump(file, true)))
            names.insert(names.begin(), layer.name);
        EXPECT_EQ(names, expected);
    }

    // The extension serves only the programs its install named.
    EXPECT_NE(session_->run({"dbus-send", "--session", "--print-reply", "--dest=com.veltrano.Plenavue.Shell",
                             "/com/veltrano/Plenavue/Shell", "com.veltrano.Plenavue.Shell1.ListWindows"},
                            &out, &err),
              0);
    EXPECT_EQ(out.find("Red"), std::string::npos);
    EXPECT_NE(err.find("NotAllowed"), std::string::npos) << err;
    EXPECT_NE(err.find("is not allowed to read windows"), std::string::npos) << err;
}

TEST_F(GnomeBackend, ShiftSuper5FromTheShellCapturesWithoutOurWindowAndNobodyElseMayPressIt) {
    const std::string output = session_->env("PV_SESSION_DIR") + "/tray";
    std::filesystem::create_directories(output);
    std::filesystem::create_directories(session_->env("XDG_CONFIG_HOME") + "/Veltrano");
    std::ofstream(session_->env("XDG_CONFIG_HOME") + "/Veltrano/Plenavue.conf")
        << "[General]\nshownIntro=true\nformat=0\nshadow=false\noutput=" << output << "\n";
    const std::string log = session_->env("PV_SESSION_DIR") + "/tray.log";
    session_->start(
        {"sh", "-c", std::string(PLENAVUE_BINARY) + " >" + log + " 2>&1"});  // no tray: its main window shows
    auto server = connect();
    ASSERT_TRUE(server);
    ASSERT_TRUE(CompositorSession::waitFor([&] { return listed(*server).count("Plenavue"); }));
    auto bus = QDBusConnection::connectToBus(QString::fromStdString(session_->env("DBUS_SESSION_BUS_ADDRESS")),
                                             "pv-gnome-tests");
    ASSERT_TRUE(
        CompositorSession::waitFor([&] { return bus.interface()->isServiceRegistered("com.veltrano.Plenavue"); }));
    auto hotKey = QDBusMessage::createMethodCall("com.veltrano.Plenavue", "/com/veltrano/Plenavue",
                                                 "com.veltrano.Plenavue.Commands", "HotKey");
    hotKey.setArguments({QString("capture-all"), 0u});
    EXPECT_EQ(bus.call(hotKey).errorName().toStdString(), "org.freedesktop.DBus.Error.AccessDenied");

    press({42, 125, 6});  // Shift, Super, 5
    std::string psd;
    ASSERT_TRUE(CompositorSession::waitFor([&] {
        std::error_code ec;
        for (const auto& f : std::filesystem::directory_iterator(output, ec))  // written aside, then renamed
            if (f.path().extension() == ".psd" && f.path().filename().string()[0] != '.') psd = f.path().string();
        return !psd.empty();
    })) << std::ifstream(log).rdbuf();
    std::vector<std::string> expected, names;
    for (const auto& title : titlesFrontToBack(*server))
        if (title != "Plenavue") expected.push_back(title);
    if (test::psdToolsAvailable()) {
        for (const auto& layer : test::pixelLayersOf(test::psdToolsDump(psd, true)))
            names.insert(names.begin(), layer.name);
        EXPECT_EQ(names, expected);
    }
}

TEST_F(GnomeBackend, TheShellGoingAwayIsOneLine) {
    auto server = connect();
    ASSERT_TRUE(server);
    listed(*server);
    session_->stopCompositor();
    ASSERT_TRUE(CompositorSession::waitFor([&] { return server->checkAccess().kind == FailureKind::CompositorLost; }));
    try {
        server->windowList();
        ADD_FAILURE() << "a list without the shell";
    } catch (const PlatformError& e) {
        EXPECT_STREQ(e.what(), "GNOME Shell is not on the session bus: the compositor went away");
    }
    std::string err;
    EXPECT_EQ(session_->run({PLENAVUE_BINARY, "list"}, nullptr, &err), 1);
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_EQ(err.rfind("plenavue list: ", 0), 0u) << err;
    EXPECT_NE(err.find("GNOME Shell"), std::string::npos) << err;
}
