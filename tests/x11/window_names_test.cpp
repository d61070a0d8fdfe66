// Names on a live X display: titles in every encoding a client may use, as
// the window list and the inventory read them, and programs named by the
// desktop entries of a private XDG_DATA_HOME.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

#include "inventory/inventory.h"
#include "platform/x11/x11_window_server.h"
#include "tests/x11/x11_test_support.h"

namespace pv::test {
namespace {

const std::string kFFFD = "\xEF\xBF\xBD";

class WindowNames : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        session = new XvfbSession(XvfbOptions{1200, 800});
        // The desktop entries this suite's server reads.
        data = std::filesystem::temp_directory_path() / ("pv-names-" + std::to_string(getpid()));
        for (const auto& [file, keys] :
             {std::pair{"org.example.Demo.desktop", "Name=Demo \xE2\x9C\x93\nIcon=/demo.png"},
              {"xfce4-panel.desktop", "Name=Panel\nStartupWMClass=Xfce4-panel\nIcon=org.xfce.panel"},
              {"harness.desktop", "Name=Test Harness\nExec=x11_tests --all"}}) {
            std::filesystem::create_directories(data / "applications");
            std::ofstream(data / "applications" / file) << "[Desktop Entry]\nType=Application\n" << keys << "\n";
        }
        setenv("XDG_DATA_HOME", data.c_str(), 1);
        setenv("XDG_DATA_DIRS", (data / "none").c_str(), 1);
        std::string error;
        server = X11WindowServer::connect(session->display(), &error).release();
        ASSERT_NE(server, nullptr) << error;
    }
    static void TearDownTestSuite() {
        delete server;
        delete session;
        std::filesystem::remove_all(data);
    }

    // Sets (or with an empty type, deletes) an 8-bit property.
    static void setText(xcb_window_t w, const char* property, const std::string& type, const std::string& bytes) {
        xcb_connection_t* c = session->connection();
        if (type.empty()) {
            xcb_delete_property(c, w, internAtom(c, property));
        } else {
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, internAtom(c, property), internAtom(c, type), 8,
                                static_cast<uint32_t>(bytes.size()), bytes.data());
        }
        xcb_flush(c);
    }
    static std::optional<WindowListEntry> entryNumbered(uint32_t number) {
        for (const WindowListEntry& e : server->windowList())
            if (e.number == number) return e;
        return std::nullopt;
    }
    // The window nodes of a fresh inventory, by window number, and their application nodes.
    static std::map<uint32_t, std::pair<PVWindowElement::Ptr, PVWindowElement::Ptr>> inventoryNodes() {
        Inventory inventory(*server);
        inventory.refreshScreenList();
        inventory.refreshWindows();
        std::map<uint32_t, std::pair<PVWindowElement::Ptr, PVWindowElement::Ptr>> windows;
        for (const auto& screen : inventory.root->children())
            for (const auto& app : screen->children())
                for (const auto& w : app->children()) windows[w->eidi] = {w, app};
        return windows;
    }

    static inline XvfbSession* session = nullptr;
    static inline X11WindowServer* server = nullptr;
    static inline std::filesystem::path data;
};

// Each row is one window: what its _NET_WM_NAME and WM_NAME hold, and the
// title the window list reports, which the tree shows as the window's name.
TEST_F(WindowNames, TitlesInEveryEncodingReadTheSame) {
    const std::string unicode =
        "\xC3\x9Cn\xC3\xAF\x63\xC3\xB6\x64\xC3\xA9 \xE2\x80\x94 \xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E \xE2\x9C\x93";
    const std::string checkMark = "\xE2\x9C\x93", smile = "\xF0\x9F\x98\x80", dash = "\xE2\x80\x94";
    struct Case {
        const char* what;
        std::string netType, netName, wmType, wmName, title;
    };
    const std::vector<Case> cases{
        {"_NET_WM_NAME", "UTF8_STRING", unicode, "STRING", "other", unicode},
        {"WM_NAME in Latin-1", "", "", "STRING", "Z\xFCrich \xA9 caf\xE9", "Z\xC3\xBCrich \xC2\xA9 caf\xC3\xA9"},
        {"WM_NAME in UTF-8", "", "", "UTF8_STRING", unicode, unicode},
        // As libX11 encodes "Üni 日本 ✓ 😀 Ω — end": Latin-1, JIS X 0208, UTF-8 segments, Greek.
        {"WM_NAME in COMPOUND_TEXT", "", "", "COMPOUND_TEXT",
         "\xDCni \x1b$(BF|K\\\x1b(B \x1b%G" + checkMark + "\x1b%@ \x1b%G" + smile + "\x1b%@ \x1b-F\xD9 \x1b%G" + dash +
             "\x1b%@ end",
         "\xC3\x9Cni \xE6\x97\xA5\xE6\x9C\xAC " + checkMark + " " + smile + " \xCE\xA9 " + dash + " end"},
        // Extended segments, known and unknown sets, a direction change, GB 2312 and CNS 11643 in GR.
        {"COMPOUND_TEXT segments", "", "", "COMPOUND_TEXT",
         std::string(
             "a\x1b%/0\x80\x89utf-8\x02\xE2\x86\x92 b\x1b%/1\x80\x8Biso8859-1\x02\xE9 c\x1b%/1\x80\x8Akoi8-r\x02"
             "\xC1\xC2\xC3 d\x1b%/2\x80\x8Cx-unknown\x02\xA1\xA2 e\x9b"
             "1]f\x1b$)A\xD6\xD0\x1b$)G\xC4\xA1"),
         "a\xE2\x86\x92 b\xC3\xA9 c\xD0\xB0\xD0\xB1\xD1\x86 d" + kFFFD + " ef\xE4\xB8\xAD" + kFFFD},
        {"_NET_WM_NAME of the wrong type", "STRING", "wrong", "STRING", "Right title", "Right title"},
        {"empty _NET_WM_NAME", "UTF8_STRING", "", "STRING", "Fallback", "Fallback"},
        {"invalid UTF-8", "UTF8_STRING", "ab\xFF\xC3 end", "", "", "ab" + kFFFD + kFFFD + " end"},
        {"no title at all", "", "", "", "", ""},
    };

    std::vector<xcb_window_t> windows;
    for (size_t i = 0; i < cases.size(); ++i) {
        windows.push_back(
            makeFilledWindow(session->connection(), 24, 20 + 40 * static_cast<int>(i), 20, 30, 30, 0x336699, ""));
        setText(windows[i], "_NET_WM_NAME", cases[i].netType, cases[i].netName);
        setText(windows[i], "WM_NAME", cases[i].wmType, cases[i].wmName);
    }
    ASSERT_TRUE(XvfbSession::waitFor([&] { return entryNumbered(windows.back()).has_value(); }));
    const auto nodes = inventoryNodes();
    for (size_t i = 0; i < cases.size(); ++i) {
        const Case& k = cases[i];
        SCOPED_TRACE(k.what);
        const auto entry = entryNumbered(windows[i]);
        ASSERT_TRUE(entry && nodes.count(windows[i]));
        EXPECT_EQ(entry->title, k.title.empty() ? std::nullopt : std::optional(k.title));
        EXPECT_EQ(nodes.at(windows[i]).first->name, k.title.empty() ? "<no title>" : k.title);
    }
}

// Group names and icons come from the desktop entries, matched by GTK
// application id, window class or program; system windows keep their role
// for the rules and show their program's name.
TEST_F(WindowNames, ProgramsAreNamedByTheirDesktopEntries) {
    // One process per application: the inventory files windows by process.
    for (const char* title : {"demo", "panel", "unknown"})
        session->start(
            {"xlogo", "-geometry", "60x40+" + std::to_string(std::strlen(title) * 100) + "+300", "-title", title});
    ASSERT_TRUE(waitForTitles(*server, {"demo", "panel", "unknown"}));
    xcb_connection_t* c = session->connection();
    const auto list = server->windowList();
    const xcb_window_t demo = entryTitled(list, "demo")->number;
    const xcb_window_t panel = entryTitled(list, "panel")->number;
    setText(demo, "_GTK_APPLICATION_ID", "UTF8_STRING", "org.example.Demo");
    setText(panel, "WM_CLASS", "STRING", std::string("xfce4-panel\0Xfce4-panel\0", 24));
    const xcb_atom_t dock = internAtom(c, "_NET_WM_WINDOW_TYPE_DOCK");
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, panel, internAtom(c, "_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, 1,
                        &dock);
    const xcb_window_t bare = makeFilledWindow(c, 24, 600, 300, 60, 40, 0x884422, "bare");  // no class: the process
    ASSERT_TRUE(XvfbSession::waitFor([&] {
        return entryNumbered(bare) && entryNumbered(panel)->ownerName == "Dock" &&
               entryNumbered(demo)->applicationName != "XLogo";
    }));

    const auto nodes = inventoryNodes();
    for (const auto& [window, owner, name, icon] : {std::tuple<xcb_window_t, std::string, std::string, std::string>{
                                                        demo, "XLogo", "Demo \xE2\x9C\x93", "/demo.png"},
                                                    {panel, "Dock", "Panel", "org.xfce.panel"},
                                                    {entryTitled(list, "unknown")->number, "XLogo", "XLogo", ""},
                                                    {bare, "x11_tests", "Test Harness", ""}}) {
        SCOPED_TRACE(name);
        const auto entry = entryNumbered(window);
        ASSERT_TRUE(entry && nodes.count(window));
        EXPECT_EQ(entry->ownerName, owner);
        EXPECT_EQ(entry->applicationName, name);
        EXPECT_EQ(entry->applicationIcon.value_or(""), icon);
        const auto& app = nodes.at(window).second;
        EXPECT_EQ(app->name, name);
        EXPECT_EQ(app->role, owner);
        EXPECT_EQ(app->iconName, icon);
    }
    EXPECT_TRUE(nodes.at(panel).first->isSystemWindow);  // the rules still know the panel as a dock
}

}  // namespace
}  // namespace pv::test
