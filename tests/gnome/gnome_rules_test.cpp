// GNOME Shell's account of the extension turned into the one line a user
// reads, and the extension's window list turned into the listing the shared
// rules list from.
#include <gtest/gtest.h>

#include "platform/gnome/gnome_windows.h"

using namespace pv;
using namespace pv::gnome;

TEST(GnomeExtensionProblem, EachStateSaysWhatToDoInOneLine) {
    // What the shell says: present, our name served, the extension's state
    // and error, its ApiVersion, and which program asks.
    auto report = [](bool shell, bool serving, std::optional<int> state, std::string error = "", uint32_t api = 0,
                     std::string self = "/usr/bin/plenavue") {
        ExtensionReport r;
        r.shellPresent = shell;
        r.serving = serving;
        r.state = state;
        r.error = std::move(error);
        r.apiVersion = api;
        r.allowed = {"/usr/bin/plenavue"};
        r.self = std::move(self);
        return r;
    };
    struct Case {
        const char* what;
        ExtensionReport report;
        FailureKind kind;
        const char* says;
    };
    const Case cases[] = {
        {"shell gone", report(false, false, {}), FailureKind::CompositorLost, "GNOME Shell is not on the session bus"},
        {"missing", report(true, false, {}), FailureKind::Unsupported, "then log out and back in"},
        {"switched off", report(true, false, 2), FailureKind::Unsupported, "gnome-extensions enable plenavue-shell@"},
        {"initialised only", report(true, false, 6), FailureKind::Unsupported, "installed but switched off"},
        {"other version", report(true, false, 4), FailureKind::Unsupported,
         "does not declare this GNOME Shell version"},
        {"failed", report(true, false, 3, "import declarations may only appear at top level"), FailureKind::Unsupported,
         "failed to load: import declarations"},
        {"locked", report(true, false, 1), FailureKind::ScreenLocked, "not serving (is the screen locked?)"},
        {"outdated", report(true, true, 1, "", 0), FailureKind::Unsupported, "older than this Plenavue"},
        {"another program", report(true, true, 1, "", kApiVersion, "/usr/bin/python3.11"), FailureKind::NotAuthorised,
         "serves only /usr/bin/plenavue, not /usr/bin/python3.11"},
        {"serving us", report(true, true, 1, "", kApiVersion), FailureKind::None, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Failure f = extensionProblem(c.report);
        EXPECT_EQ(f.kind, c.kind);
        EXPECT_NE(f.line().find(c.says), std::string::npos) << f.line();
        EXPECT_EQ(f.line().find('\n'), std::string::npos);
    }
}

TEST(GnomeListing, KeepsTheStackBottomFirstWithRolesApplicationsAndTheMainScreenFirst) {
    const auto parsed = parseListing(R"({"api": 1,
      "monitors": [{"index": 0, "x": 0, "y": 0, "width": 1024, "height": 768, "scale": 1, "primary": false},
                   {"index": 1, "x": 1024, "y": 0, "width": 1280, "height": 800, "scale": 2, "primary": true}],
      "windows": [
        {"id": 4294967301, "title": "Front", "frame": {"x": 10, "y": 20, "width": 300, "height": 200},
         "windowType": "NORMAL", "layer": "TOP", "clientType": "X11", "pid": 7, "wmClass": "Xlogo",
         "hasPicture": true, "onActiveWorkspace": true, "app": {"id": "window:3", "name": "Xlogo"}},
        {"id": 12, "title": "Panel", "frame": {"x": 0, "y": 0, "width": 1280, "height": 30}, "windowType": "DOCK",
         "hasPicture": true, "onAllWorkspaces": true, "sandboxedAppId": "org.example.Panel",
         "app": {"id": "org.example.Panel.desktop", "name": "Example Panel", "icon": "org.example.Panel"}},
        {"id": 13, "title": "New", "frame": {"x": 0, "y": 0, "width": 0, "height": 0}, "hasPicture": false},
        {"id": -1, "title": "not a window"}]})");
    const auto& l = parsed.listing;
    ASSERT_EQ(l.screens.size(), 2u);
    EXPECT_EQ(l.screens[0].name, "1");
    EXPECT_EQ(l.screens[0].scale, 2);
    ASSERT_EQ(l.windows.size(), 3u);
    EXPECT_EQ(l.windows[0].caption, "New");
    EXPECT_TRUE(l.windows[0].hidden);
    EXPECT_TRUE(l.windows[1].dock);
    EXPECT_EQ(l.windows[1].desktopFileName, "org.example.Panel");
    EXPECT_EQ(l.windows[2].id, "4294967301");
    EXPECT_TRUE(l.windows[2].x11 && l.windows[2].keepAbove && l.windows[2].onCurrentDesktop);
    EXPECT_EQ(parsed.applications.count("4294967301"), 0u);  // the tracker's invented app: the class stands
    EXPECT_EQ(parsed.applications.at("12").name, "Example Panel");
    EXPECT_EQ(parsed.applications.at("12").icon, "org.example.Panel");
    EXPECT_THROW(parseListing("{\"monitors\": []}"), kwin::ListingError);
}
