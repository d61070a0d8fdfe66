// The KDE Plasma backend against KWin 5.27 itself, one headless session per
// test: the list against KWin's own account of each window, the stacking after
// raising a window, covered windows whole, pictures and the merged image in
// agreement, our windows left out, permission, and the requests KWin never
// answers (a minimised window, a locked screen, KWin gone) ending in time.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <tuple>

#include "platform/kwin/kwin_window_server.h"
#include "tests/support/kwin_session.h"

using namespace pv;
using pv::test::KWinSession;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// A window's client area is 300x200 unless said otherwise; KWin's title bar
// adds 37 points above it.
constexpr int kTitleBar = 37;

std::array<int, 4> pixel(const Image& image, int x, int y) {
    const uint8_t* p = image.row(y) + 4 * x;
    return {p[0], p[1], p[2], p[3]};
}
constexpr std::array<int, 4> kRed{255, 0, 0, 255}, kGreen{0, 255, 0, 255}, kBlue{0, 0, 255, 255};

class KWinBackend : public ::testing::Test {
protected:
    void start(test::KWinSessionOptions options = {}) { session_ = std::make_unique<KWinSession>(options); }

    std::unique_ptr<KWinWindowServer> connect(int32_t ownPid = 0) {
        KWinWindowServer::Options o;
        o.busAddress = session_->env("DBUS_SESSION_BUS_ADDRESS");
        o.ownPid = ownPid;
        std::string error;
        auto server = KWinWindowServer::connect(o, &error);
        EXPECT_TRUE(server) << error;
        return server;
    }

    // The listed windows by title, once all of these are listed.
    std::map<std::string, WindowListEntry> listed(KWinWindowServer& server, const std::vector<std::string>& titles) {
        std::map<std::string, WindowListEntry> found;
        const bool all = KWinSession::waitFor([&] {
            found.clear();
            for (const auto& e : server.windowList()) found[e.title.value_or("")] = e;
            return std::all_of(titles.begin(), titles.end(), [&](const auto& t) { return found.count(t) > 0; });
        });
        EXPECT_TRUE(all) << "not all windows came up";
        return found;
    }

    // Runs body with `w` bound to the window of that caption.
    void withWindow(const std::string& caption, const std::string& body) {
        session_->runScript("var l = workspace.clientList(); for (var i = 0; i < l.length; ++i) { var w = l[i];"
                            " if (w.caption == '" + caption + "') { " + body + " } }");
    }
    void place(const std::string& caption, int x, int y) {
        withWindow(caption, "w.frameGeometry = {x: " + std::to_string(x) + ", y: " + std::to_string(y) +
                                ", width: w.frameGeometry.width, height: w.frameGeometry.height};");
    }
    void raise(const std::string& caption) { withWindow(caption, "workspace.activeClient = w;"); }

    // Front to back, the titles of these windows as the server lists them.
    std::vector<std::string> order(KWinWindowServer& server, const std::set<std::string>& titles) {
        std::vector<std::string> out;
        for (const auto& e : server.windowList())
            if (titles.count(e.title.value_or(""))) out.push_back(*e.title);
        return out;
    }

    static PictureRequest request(uint32_t number, bool framing = false) {
        PictureRequest r;
        r.window = number;
        r.framing = framing;
        return r;
    }
    PictureResult picture(KWinWindowServer& server, uint32_t number, bool framing) {
        return server.takePictures({request(number, framing)}, 5s).front();
    }

    std::unique_ptr<KWinSession> session_;
};

// A number of KWin's account of a window (getWindowInfo), as gdbus prints it.
double infoNumber(const std::string& info, const std::string& key) {
    std::smatch m;
    if (!std::regex_search(info, m, std::regex("'" + key + "': <(-?[0-9.]+)>"))) return -1;
    return std::stod(m[1]);
}

}  // namespace

TEST_F(KWinBackend, ListsEachShownWindowOnceAsKWinDescribesIt) {
    start();
    const pid_t red = session_->startTestWindow("Red", "#ff0000", "#0000ff", "300x200", false, "pv-red");
    const pid_t green = session_->startTestWindow("Green X", "#00ff00", "#ffff00", "300x200", true);
    session_->start({"weston-terminal", "--shell=/bin/cat"});
    session_->start({"trayer", "--edge", "top", "--widthtype", "pixel", "--width", "200", "--height", "24"});
    session_->startTestWindow("Minimised", "#ffffff", "#000000");
    auto server = connect();
    ASSERT_TRUE(server);
    auto windows = listed(*server, {"Red", "Green X", "Wayland Terminal", "panel", "Minimised"});
    withWindow("Minimised", "w.minimized = true;");
    ASSERT_TRUE(KWinSession::waitFor([&] { return !listed(*server, {"Red"}).count("Minimised"); }));

    const auto entries = server->windowList();
    ASSERT_EQ(entries.size(), 4u);
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
    windows = listed(*server, {"Red", "Green X", "Wayland Terminal", "panel"});
    EXPECT_EQ(windows["Red"].ownerPID, red);
    EXPECT_EQ(windows["Red"].ownerName, "pv-red");
    EXPECT_EQ(windows["Green X"].ownerPID, green);  // an X client through Xwayland
    EXPECT_EQ(windows["panel"].ownerName, "Dock");
    EXPECT_EQ(windows["Red"].bounds.height, 200 + kTitleBar);

    const auto screens = server->screenList();
    ASSERT_EQ(screens.size(), 1u);
    EXPECT_EQ(screens[0].frame, (ScreenRect{0, 0, 1280, 800}));
    EXPECT_EQ(screens[0].backingScaleFactor, 1.0);
    EXPECT_EQ(server->scriptApi(), 5);
}

TEST_F(KWinBackend, StackingFollowsTheWindowRaisedAndACoveredWindowComesOutWhole) {
    start();
    session_->startTestWindow("Red", "#ff0000", "#0000ff");
    session_->startTestWindow("Green", "#00ff00", "#0000ff", "400x300");
    auto server = connect();
    ASSERT_TRUE(server);
    listed(*server, {"Red", "Green"});
    place("Red", 100, 100);
    place("Green", 100, 100);
    // A point inside both client areas, in the merged image; Green ends in front.
    const int bothX = 250, bothY = 100 + kTitleBar + 100;
    for (const auto& [front, back, colour] : {std::tuple{"Red", "Green", kRed}, std::tuple{"Green", "Red", kGreen}}) {
        SCOPED_TRACE(front);
        raise(front);
        ASSERT_TRUE(KWinSession::waitFor([&] {
            return order(*server, {"Red", "Green"}) == std::vector<std::string>{front, back};
        }));
        const auto desktop = server->desktopPicture();
        ASSERT_TRUE(desktop);
        EXPECT_EQ(pixel(*desktop, bothX, bothY), colour);
    }
    auto windows = listed(*server, {"Red", "Green"});

    // The three pictures in one batch.
    const std::vector<PictureRequest> requests{request(windows["Red"].number), request(windows["Red"].number, true),
                                               request(windows["Green"].number)};
    const auto results = server->takePictures(requests, 5s);
    for (const auto& r : results) ASSERT_TRUE(r.picture) << r.failure.line();
    const WindowPicture& red = *results[0].picture;
    const WindowPicture& framed = *results[1].picture;

    // All of the covered window: its frame's size, fill and border where it drew them.
    ASSERT_EQ(red.image.width, 300);
    ASSERT_EQ(red.image.height, 200 + kTitleBar);
    EXPECT_EQ(red.placement, windows["Red"].bounds);
    for (int y = kTitleBar + 20; y < kTitleBar + 180; y += 7)
        for (int x = 20; x < 280; x += 7) ASSERT_EQ(pixel(red.image, x, y), kRed) << x << "," << y;
    EXPECT_EQ(pixel(red.image, 5, kTitleBar + 100), kBlue);
    EXPECT_EQ(pixel(red.image, 150, kTitleBar + 195), kBlue);
    EXPECT_EQ(pixel(red.image, 150, 15)[3], 255);  // the title bar

    // With KWin's shadow: the same frame inside, where the picture says it is.
    EXPECT_GT(framed.image.width, 300);
    EXPECT_EQ(framed.frame.size(), (Size{300, 200 + kTitleBar}));
    EXPECT_EQ(framed.placement.x, windows["Red"].bounds.x - framed.frame.x);
    EXPECT_EQ(framed.placement.y, windows["Red"].bounds.y - framed.frame.y);
    for (int y = 0; y < red.image.height; y += 5)
        for (int x = 0; x < red.image.width; x += 5)
            ASSERT_EQ(pixel(framed.image, x + int(framed.frame.x), y + int(framed.frame.y)), pixel(red.image, x, y));

    // The frontmost window's picture is what the merged image shows there.
    const Image& green = results[2].picture->image;
    const auto desktop = server->desktopPicture();
    ASSERT_TRUE(desktop);
    const WindowRect at = windows["Green"].bounds;
    int opaque = 0, same = 0;
    for (int y = 0; y < green.height; ++y)
        for (int x = 0; x < green.width; ++x) {
            if (pixel(green, x, y)[3] != 255) continue;  // rounded corners blend with what lies behind
            ++opaque;
            same += pixel(green, x, y) == pixel(*desktop, int(at.x) + x, int(at.y) + y);
        }
    EXPECT_GT(opaque, 400 * 300);
    EXPECT_EQ(same, opaque);
}

TEST_F(KWinBackend, OurOwnWindowsAreLeftOutOfTheListAndTheMergedImage) {
    start();
    session_->startTestWindow("Theirs", "#00ff00", "#00ff00", "400x300");
    const pid_t ours = session_->startTestWindow("Ours", "#ff0000", "#ff0000");
    auto server = connect(ours);
    ASSERT_TRUE(server);
    listed(*server, {"Theirs", "Ours"});
    place("Theirs", 100, 100);  // to 500, 437
    place("Ours", 350, 300);    // to 650, 537
    raise("Ours");
    ASSERT_TRUE(KWinSession::waitFor([&] { return order(*server, {"Theirs", "Ours"}).front() == "Ours"; }));
    auto windows = listed(*server, {"Theirs", "Ours"});
    EXPECT_EQ(windows["Ours"].sharingState, 0);
    EXPECT_EQ(windows["Theirs"].sharingState, 1);
    // Where ours stands, the merged image shows theirs behind it.
    const auto desktop = server->desktopPicture();
    ASSERT_TRUE(desktop);
    EXPECT_EQ(pixel(*desktop, 400, 400), kGreen);
    EXPECT_EQ(pixel(*desktop, 600, 500), (std::array<int, 4>{0, 0, 0, 255}));  // ours, beyond theirs: nothing
}

TEST_F(KWinBackend, RefusedPermissionSaysWhatToDoAndTheDesktopEntryLetsUsIn) {
    test::KWinSessionOptions options;
    options.permissionChecks = true;
    start(options);
    session_->startTestWindow("Red", "#ff0000", "#0000ff");
    auto server = connect();
    ASSERT_TRUE(server);
    auto windows = listed(*server, {"Red"});  // listing needs no permission

    const std::string self = fs::read_symlink("/proc/self/exe").string();
    const Failure refused = server->checkAccess();
    EXPECT_EQ(refused.kind, FailureKind::NotAuthorised);
    EXPECT_EQ(refused.line().find('\n'), std::string::npos);
    EXPECT_NE(refused.line().find("Exec=" + self), std::string::npos) << refused.line();
    EXPECT_NE(refused.line().find("X-KDE-DBUS-Restricted-Interfaces=org.kde.KWin.ScreenShot2"), std::string::npos);
    EXPECT_EQ(picture(*server, windows["Red"].number, false).failure.kind, FailureKind::NotAuthorised);

    // What the message says to do: a desktop entry naming this program.
    std::ofstream(session_->env("XDG_DATA_HOME") + "/applications/pv-kwin-tests.desktop")
        << "[Desktop Entry]\nType=Application\nName=Tests\nExec=" << self
        << "\nX-KDE-DBUS-Restricted-Interfaces=org.kde.KWin.ScreenShot2\n";
    EXPECT_TRUE(KWinSession::waitFor([&] { return !server->checkAccess(); }));
    EXPECT_TRUE(picture(*server, windows["Red"].number, false).picture);
}

TEST_F(KWinBackend, ALockedScreenIsSaidNotWaitedFor) {
    test::KWinSessionOptions options;
    options.lockSupport = true;
    start(options);
    session_->startTestWindow("Red", "#ff0000", "#0000ff");
    auto server = connect();
    ASSERT_TRUE(server);
    auto windows = listed(*server, {"Red"});
    const std::vector<std::string> saver{"gdbus", "call", "--session", "--dest", "org.freedesktop.ScreenSaver",
                                         "--object-path", "/ScreenSaver", "--method"};
    auto call = [&](const std::string& method) {
        auto argv = saver;
        argv.push_back("org.freedesktop.ScreenSaver." + method);
        std::string out;
        session_->run(argv, &out);
        return out;
    };
    call("Lock");
    ASSERT_TRUE(KWinSession::waitFor([&] { return call("GetActive").find("true") != std::string::npos; }));

    const Failure locked = server->checkAccess();
    EXPECT_EQ(locked.kind, FailureKind::ScreenLocked);
    EXPECT_EQ(locked.line(), "the screen is locked; unlock it and capture again");
    auto batch = server->requestPictures({request(windows["Red"].number)}, 30s);
    ASSERT_TRUE(batch->wait(3s));  // not sent at all: KWin would not answer until unlocked
    EXPECT_EQ(batch->results()[0].failure.kind, FailureKind::ScreenLocked);

    // The command line says so in one line and writes nothing.
    const std::string file = session_->env("PV_SESSION_DIR") + "/locked.psd";
    std::string err;
    EXPECT_EQ(session_->run({PLENAVUE_BINARY, "capture", "--file", file}, nullptr, &err), 1);
    EXPECT_EQ(err, "plenavue capture: the screen is locked; unlock it and capture again\n");
    EXPECT_FALSE(fs::exists(file));
}

// KWin serves picture requests when it paints, and nothing paints a minimised
// window: asked for alone, it is never answered.
TEST_F(KWinBackend, AMinimisedWindowEndsAtTheDeadlineAndKWinGoingAwayEndsWhatIsInFlight) {
    start();
    session_->startTestWindow("Red", "#ff0000", "#0000ff");
    session_->startTestWindow("Green", "#00ff00", "#0000ff");
    auto server = connect();
    ASSERT_TRUE(server);
    auto windows = listed(*server, {"Red", "Green"});
    withWindow("Red", "w.minimized = true;");
    ASSERT_TRUE(KWinSession::waitFor([&] {
        return session_->windowInfo(windows["Red"].handle.key).find("'minimized': <true>") != std::string::npos;
    }));
    auto late = server->requestPictures({request(windows["Red"].number)}, 1500ms);
    ASSERT_TRUE(late->wait(20s));  // a safety limit only
    EXPECT_EQ(late->results()[0].failure.kind, FailureKind::TimedOut);
    const auto green = picture(*server, windows["Green"].number, false);
    ASSERT_TRUE(green.picture) << green.failure.line();
    EXPECT_EQ(pixel(green.picture->image, 150, kTitleBar + 100), kGreen);

    // A request KWin will never answer is in flight when it goes.
    auto batch = server->requestPictures({request(windows["Red"].number)}, 60s);
    EXPECT_FALSE(batch->wait(500ms));
    session_->stopKWin();
    ASSERT_TRUE(batch->wait(20s));
    const Failure lost = batch->results()[0].failure;
    EXPECT_EQ(lost.kind, FailureKind::CompositorLost);
    EXPECT_EQ(lost.line(), "KWin has left the session: the compositor went away");
    EXPECT_EQ(server->checkAccess().kind, FailureKind::CompositorLost);
    try {
        server->windowList();
        ADD_FAILURE() << "a list without KWin";
    } catch (const PlatformError& e) {
        EXPECT_STREQ(e.what(), "KWin has left the session: the compositor went away");
    }

    // A command started now says it in one line too (which line depends on how
    // far KWin's shutdown has got).
    std::string err;
    EXPECT_EQ(session_->run({PLENAVUE_BINARY, "list"}, nullptr, &err), 1);
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_EQ(err.rfind("plenavue list: ", 0), 0u) << err;
}
