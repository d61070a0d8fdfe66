// Which backend a front end gets: the session read from the environment, the
// forced backends, and a Wayland session without a backend refusing in one line.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "app/window_server_choice.h"

using namespace pv;

namespace {

SessionFacts sessionOf(const std::map<std::string, std::string>& env) {
    return sessionFrom([&](const char* name) -> std::optional<std::string> {
        auto it = env.find(name);
        return it == env.end() ? std::nullopt : std::optional<std::string>(it->second);
    });
}

}  // namespace

TEST(WindowServerChoice, TheSessionComesFromTheEnvironment) {
    struct Case {
        const char* what;
        std::map<std::string, std::string> env;
        bool wayland;
        std::string evidence, desktop, socket;
    };
    const Case cases[] = {
        {"an X11 session", {{"XDG_SESSION_TYPE", "x11"}, {"XDG_CURRENT_DESKTOP", "XFCE"}}, false, "", "XFCE", ""},
        {"nothing said", {}, false, "", "", ""},
        {"a Wayland session",
         {{"XDG_SESSION_TYPE", "wayland"}, {"XDG_RUNTIME_DIR", "/run/user/7"}, {"XDG_SESSION_DESKTOP", "gnome"}},
         true,
         "XDG_SESSION_TYPE=wayland",
         "gnome",
         "/run/user/7/wayland-0"},
        {"only a compositor's socket",
         {{"WAYLAND_DISPLAY", "wayland-1"}, {"XDG_RUNTIME_DIR", "/r"}},
         true,
         "WAYLAND_DISPLAY=wayland-1",
         "",
         "/r/wayland-1"},
        {"a compositor nested in an X11 session",
         {{"XDG_SESSION_TYPE", "x11"}, {"WAYLAND_DISPLAY", "/tmp/w"}},
         false,
         "",
         "",
         "/tmp/w"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const SessionFacts s = sessionOf(c.env);
        EXPECT_EQ(std::tie(s.wayland, s.evidence, s.desktop, s.waylandSocket),
                  std::tie(c.wayland, c.evidence, c.desktop, c.socket));
    }
}

// Sway is a desktop we lack; Plasma or GNOME whose compositor is not on our
// bus is not.
TEST(WindowServerChoice, AWaylandSessionWithoutABackendSaysWhatWouldWork) {
    const std::pair<const char*, const char*> cases[] = {
        {"sway", "(sway, XDG_SESSION_TYPE=wayland) whose compositor Plenavue cannot capture"},
        {"KDE", "KWin is not on its session bus"},
        {"GNOME", "GNOME Shell is not on its session bus"}};
    for (const auto& [desktop, says] : cases) {
        const Failure f =
            unsupportedSession(sessionOf({{"XDG_SESSION_TYPE", "wayland"}, {"XDG_CURRENT_DESKTOP", desktop}}));
        EXPECT_EQ(f.kind, FailureKind::Unsupported);
        EXPECT_NE(f.line().find(says), std::string::npos) << f.line();
        EXPECT_EQ(f.line().find('\n'), std::string::npos);
    }
}

TEST(WindowServerChoice, ForcedBackendsAndARefusingServerForWaylandWithoutKWin) {
    const auto fixture = std::filesystem::path(PV_SOURCE_DIR) / "fixtures/one-screen.json";
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");  // no KWin to be found
    ::unsetenv("DISPLAY");
    ::setenv("PLENAVUE_BACKEND", "fixture", 1);
    ::setenv("PLENAVUE_DESKTOP", fixture.c_str(), 1);
    std::string error;
    auto server = openWindowServer("", &error);
    ASSERT_TRUE(server) << error;
    EXPECT_EQ(server->backendName(), "fixture");

    ::setenv("PLENAVUE_BACKEND", "weston", 1);
    EXPECT_FALSE(openWindowServer("", &error));
    EXPECT_EQ(error, "PLENAVUE_BACKEND=weston is not a backend (use x11, kwin, gnome or fixture)");

    ::unsetenv("PLENAVUE_BACKEND");
    ::setenv("XDG_SESSION_TYPE", "wayland", 1);
    ::setenv("XDG_CURRENT_DESKTOP", "GNOME", 1);
    EXPECT_TRUE(opensAfterApplication(""));
    EXPECT_FALSE(opensAfterApplication(fixture.string()));
    server = openWindowServer("", &error);
    ASSERT_TRUE(server) << error;
    EXPECT_EQ(server->checkAccess().kind, FailureKind::Unsupported);
    EXPECT_TRUE(server->windowList().empty());
    EXPECT_FALSE(server->desktopPicture());
}
