// The KDE Plasma backend against KWin 5.27 itself, one headless session per
// test: the list against KWin's own account of each window, the stacking after
// raising a window, covered windows whole, pictures and the merged image in
// agreement, our windows left out, permission, and the requests KWin never
// answers (a minimised window, a locked screen, KWin gone) ending in time.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "platform/kwin/kwin_window_server.h"
#include "tests/support/compositor_session.h"

using namespace pv;
using namespace pv::test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// A window's client area is 300x200 unless said otherwise; KWin's title bar
// adds 37 points above it.
constexpr int kTitleBar = 37;
constexpr Pixel kRed{255, 0, 0, 255}, kGreen{0, 255, 0, 255}, kBlue{0, 0, 255, 255};

class KWinBackend : public ::testing::Test {
protected:
    void start(CompositorSessionOptions options = {}) { session_ = std::make_unique<CompositorSession>(options); }

    std::unique_ptr<KWinWindowServer> connect(int32_t ownPid = 0) {
        KWinWindowServer::Options o;
        o.busAddress = session_->env("DBUS_SESSION_BUS_ADDRESS");
        o.ownPid = ownPid;
        std::string error;
        auto server = KWinWindowServer::connect(o, &error);
        EXPECT_TRUE(server) << error;
        return server;
    }

    // Runs body with `w` bound to the window of that caption.
    void withWindow(const std::string& caption, const std::string& body) {
        session_->runScript(
            "var l = workspace.clientList(); for (var i = 0; i < l.length; ++i) { var w = l[i];"
            " if (w.caption == '" +
            caption + "') { " + body + " } }");
    }
    void place(const std::string& caption, int x, int y) {
        withWindow(caption, "w.frameGeometry = {x: " + std::to_string(x) + ", y: " + std::to_string(y) +
                                ", width: w.frameGeometry.width, height: w.frameGeometry.height};");
    }
    // Raises a window and waits until the list says so.
    void raise(KWinWindowServer& server, const std::string& caption) {
        withWindow(caption, "workspace.activeClient = w;");
        ASSERT_TRUE(CompositorSession::waitFor([&] { return titlesFrontToBack(server).front() == caption; }));
    }

    std::unique_ptr<CompositorSession> session_;
};

// A number of KWin's account of a window (getWindowInfo), as gdbus prints it.
double infoNumber(const std::string& info, const std::string& key) {
    std::smatch m;
    if (!std::regex_search(info, m, std::regex("'" + key + "': <(-?[0-9.]+)>"))) return -1;
    return std::stod(m[1]);
}

}  // namespace

// KWin serves picture requests when it paints, and nothing paints a minimised
// window: asked for alone, it is never answered.
TEST_F(KWinBackend, ListsEachShownWindowOnceAsKWinDescribesItAndEndsWhatKWinNeverAnswers) {
    start();
    const pid_t red = session_->startTestWindow("Red", "#ff0000", "#0000ff", "300x200", false, "pv-red");
    const pid_t green = session_->startTestWindow("Green X", "#00ff00", "#ffff00", "300x200", true);
    session_->start({"weston-terminal", "--shell=/bin/cat"});
    session_->start({"trayer", "--edge", "top", "--widthtype", "pixel", "--width", "200", "--height", "24"});
    session_->startTestWindow("Minimised", "#ffffff", "#000000");
    auto server = connect();
    ASSERT_TRUE(server);
    auto windows = listedByTitle(*server, {"Red", "Green X", "Wayland Terminal", "panel", "Minimised"});
    const auto entries = server->windowList();
    ASSERT_EQ(entries.size(), 5u);
    for (size_t i = 0; i < entries.size(); ++i) {
        const auto& e = entries[i];
        SCOPED_TRACE(e.title.value_or("?"));
        // KWin's own account of the window, by the id the list gives.
        const std::string info = session_->windowInfo(e.handle.key);
        EXPECT_NE(info.find("'caption': <'" + e.title.value_or("") + "'>"), std::string::npos) << info;
        EXPECT_EQ(e.bounds, (WindowRect{infoNumber(info, "x"), infoNumber(info, "y"), infoNumber(info, "width"),
                                        infoNumber(info, "height")}));
        EXPECT_EQ(e.sharingState, 1);
        if (i > 0) {
            EXPECT_LT(e.layer, entries[i - 1].layer);
        }
    }
    EXPECT_EQ(windows["Red"].ownerPID, red);
    EXPECT_EQ(windows["Red"].ownerName, "pv-red");
    EXPECT_EQ(windows["Green X"].ownerPID, green);  // an X client through Xwayland
    EXPECT_EQ(windows["panel"].ownerName, "Dock");
    EXPECT_EQ(windows["Red"].bounds.height, 200 + kTitleBar);
    const auto screens = server->screenList();
    ASSERT_EQ(screens.size(), 1u);
    EXPECT_EQ(screens[0].frame, (ScreenRect{0, 0, 1280, 800}));

    // Minimised, a window ends at its deadline; the others are still served.
    withWindow("Minimised", "w.minimized = true;");
    ASSERT_TRUE(CompositorSession::waitFor([&] {
        return session_->windowInfo(windows["Minimised"].handle.key).find("'minimized': <true>") != std::string::npos;
    }));
    auto late = server->requestPictures({pictureOf(windows["Minimised"])}, 1500ms);
    ASSERT_TRUE(late->wait(20s));  // a safety limit only
    EXPECT_EQ(late->results()[0].failure.kind, FailureKind::TimedOut);
    const auto shown = server->takePictures({pictureOf(windows["Red"])}, 5s).front();
    ASSERT_TRUE(shown.picture) << shown.failure.line();
    EXPECT_EQ(pixelAt(shown.picture->image, 150, kTitleBar + 100), kRed);

    // A request KWin will never answer is in flight when it goes; meanwhile
    // the list leaves the minimised window out.
    auto batch = server->requestPictures({pictureOf(windows["Minimised"])}, 60s);
    EXPECT_FALSE(batch->wait(500ms));
    EXPECT_EQ(titlesFrontToBack(*server, {"Red", "Minimised"}), std::vector<std::string>{"Red"});
    session_->stopCompositor();
    ASSERT_TRUE(batch->wait(20s));
    const Failure lost = batch->results()[0].failure;
    EXPECT_EQ(lost.kind, FailureKind::CompositorLost);
    EXPECT_EQ(lost.line(), "KWin has left the session: the compositor went away");
    EXPECT_EQ(server->checkAccess().kind, FailureKind::CompositorLost);
    try {
        server->windowList();
        ADD_FAILURE() << "a list without KWin";
    } catch (const PlatformError& e) {
        EXPECT_EQ(e.what(), lost.line());
    }
    // A command started now says it in one line too (which line depends on how
    // far KWin's shutdown has got).
    std::string err;
    EXPECT_EQ(session_->run({PLENAVUE_BINARY, "list"}, nullptr, &err), 1);
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_EQ(err.rfind("plenavue list: ", 0), 0u) << err;
}

// Red and Green where they overlap, ours beside them and behind.
TEST_F(KWinBackend, StackingFollowsTheWindowRaisedCoveredWindowsComeOutWholeAndOursAreLeftOut) {
    start();
    session_->startTestWindow("Red", "#ff0000", "#0000ff");
    session_->startTestWindow("Green", "#00ff00", "#0000ff", "400x300");
    const pid_t ours = session_->startTestWindow("Ours", "#ff0000", "#ff0000");
    auto server = connect(ours);
    ASSERT_TRUE(server);
    listedByTitle(*server, {"Red", "Green", "Ours"});
    place("Red", 100, 100);    // to 400, 337
    place("Green", 100, 100);  // to 500, 437
    place("Ours", 350, 300);   // to 650, 537
    // A point inside both client areas, in the merged image; Green ends in front.
    const int bothX = 250, bothY = 100 + kTitleBar + 100;
    for (const auto& [front, colour] : {std::pair{"Red", kRed}, std::pair{"Green", kGreen}}) {
        SCOPED_TRACE(front);
        raise(*server, front);
        const auto desktop = server->desktopPicture();
        ASSERT_TRUE(desktop);
        EXPECT_EQ(pixelAt(*desktop, bothX, bothY), colour);
    }
    auto windows = listedByTitle(*server, {"Red", "Green", "Ours"});
    EXPECT_EQ(titlesFrontToBack(*server), (std::vector<std::string>{"Green", "Red", "Ours"}));

    // The three pictures in one batch.
    const auto results = server->takePictures(
        {pictureOf(windows["Red"]), pictureOf(windows["Red"], true), pictureOf(windows["Green"])}, 5s);
    for (const auto& r : results) ASSERT_TRUE(r.picture) << r.failure.line();
    const WindowPicture& red = *results[0].picture;
    // All of the covered window: its frame's size, fill and border where it drew them.
    ASSERT_EQ(red.image.width, 300);
    ASSERT_EQ(red.image.height, 200 + kTitleBar);
    EXPECT_EQ(red.placement, windows["Red"].bounds);
    for (int y = kTitleBar + 20; y < kTitleBar + 180; y += 7)
        for (int x = 20; x < 280; x += 7) ASSERT_EQ(pixelAt(red.image, x, y), kRed) << x << "," << y;
    EXPECT_EQ(pixelAt(red.image, 5, kTitleBar + 100), kBlue);
    EXPECT_EQ(pixelAt(red.image, 150, kTitleBar + 195), kBlue);
    EXPECT_EQ(pixelAt(red.image, 150, 15)[3], 255);   // the title bar
    EXPECT_GT(results[1].picture->image.width, 300);  // with KWin's shadow
    const auto desktop = server->desktopPicture();
    ASSERT_TRUE(desktop);
    expectPicturesAgree(red, *results[1].picture, *results[2].picture, windows["Green"].bounds, *desktop, 400 * 300);

    // Ours in front: the merged image shows what is behind it.
    raise(*server, "Ours");
    windows = listedByTitle(*server, {"Red", "Green", "Ours"});
    EXPECT_EQ(windows["Ours"].sharingState, 0);
    EXPECT_EQ(windows["Green"].sharingState, 1);
    const auto without = server->desktopPicture();
    ASSERT_TRUE(without);
    EXPECT_EQ(pixelAt(*without, 400, 400), kGreen);
    EXPECT_EQ(pixelAt(*without, 600, 500), (Pixel{0, 0, 0, 255}));  // ours, beyond theirs: nothing
}

TEST_F(KWinBackend, RefusedPermissionSaysWhatToDoAndTheDesktopEntryLetsUsIn) {
    CompositorSessionOptions options;
    options.permissionChecks = true;
    start(options);
    session_->startTestWindow("Red", "#ff0000", "#0000ff");
    auto server = connect();
    ASSERT_TRUE(server);
    const WindowListEntry red = listedByTitle(*server, {"Red"})["Red"];  // listing needs no permission

    const std::string self = fs::read_symlink("/proc/self/exe").string();
    const Failure refused = server->checkAccess();
    EXPECT_EQ(refused.kind, FailureKind::NotAuthorised);
    EXPECT_EQ(refused.line().find('\n'), std::string::npos);
    EXPECT_NE(refused.line().find("Exec=" + self), std::string::npos) << refused.line();
    EXPECT_NE(refused.line().find("X-KDE-DBUS-Restricted-Interfaces=org.kde.KWin.ScreenShot2"), std::string::npos);
    EXPECT_EQ(server->takePictures({pictureOf(red)}, 5s)[0].failure.kind, FailureKind::NotAuthorised);

    // What the message says to do: a desktop entry naming this program.
    std::ofstream(session_->env("XDG_DATA_HOME") + "/applications/pv-kwin-tests.desktop")
        << "[Desktop Entry]\nType=Application\nName=Tests\nExec=" << self
        << "\nX-KDE-DBUS-Restricted-Interfaces=org.kde.KWin.ScreenShot2\n";
    EXPECT_TRUE(CompositorSession::waitFor([&] { return !server->checkAccess(); }));
    EXPECT_TRUE(server->takePictures({pictureOf(red)}, 5s)[0].picture);
}

TEST_F(KWinBackend, ALockedScreenIsSaidNotWaitedFor) {
    CompositorSessionOptions options;
    options.lockSupport = true;
    start(options);
    session_->startTestWindow("Red", "#ff0000", "#0000ff");
    auto server = connect();
    ASSERT_TRUE(server);
    const WindowListEntry red = listedByTitle(*server, {"Red"})["Red"];
    auto call = [&](const std::string& method) {
        std::string out;
        session_->run({"gdbus", "call", "--session", "--dest", "org.freedesktop.ScreenSaver", "--object-path",
                       "/ScreenSaver", "--method", "org.freedesktop.ScreenSaver." + method},
                      &out);
        return out;
    };
    call("Lock");
    ASSERT_TRUE(CompositorSession::waitFor([&] { return call("GetActive").find("true") != std::string::npos; }));

    const Failure locked = server->checkAccess();
    EXPECT_EQ(locked.kind, FailureKind::ScreenLocked);
    EXPECT_EQ(locked.line(), "the screen is locked; unlock it and capture again");
    auto batch = server->requestPictures({pictureOf(red)}, 30s);
    ASSERT_TRUE(batch->wait(3s));  // not sent at all: KWin would not answer until unlocked
    EXPECT_EQ(batch->results()[0].failure.kind, FailureKind::ScreenLocked);

    // The command line says so in one line and writes nothing.
    const std::string file = session_->env("PV_SESSION_DIR") + "/locked.psd";
    std::string err;
    EXPECT_EQ(session_->run({PLENAVUE_BINARY, "capture", "--file", file}, nullptr, &err), 1);
    EXPECT_EQ(err, "plenavue capture: " + locked.line() + "\n");
    EXPECT_FALSE(fs::exists(file));
}
