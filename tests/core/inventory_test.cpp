// The screen and window inventory over a fake window server: what ends up in
// the tree, under which screen and application, and the screen measures.
#include <gtest/gtest.h>

#include <algorithm>

#include "inventory/inventory.h"
#include "inventory/inventory_format.h"
#include "inventory/node_name.h"
#include "tests/core/fake_window_server.h"

namespace pv {
namespace {

using test::FakeWindowServer;

ScreenListEntry screen(uint32_t id, ScreenRect frame, double scale) { return {id, frame, scale}; }

std::vector<std::string> namesOf(const PVWindowElement::Ptr& node) {
    std::vector<std::string> names;
    for (const auto& child : node->children()) names.push_back(child->name);
    return names;
}

class InventoryTest : public ::testing::Test {
protected:
    FakeWindowServer server;
    Inventory inventory{server};

    void SetUp() override { server.screens = {screen(1, {0, 0, 1440, 900}, 2.0)}; }

    PVWindowElement::Ptr refresh() {
        inventory.refreshScreenList();
        inventory.refreshWindows();
        return inventory.root;
    }
};

TEST_F(InventoryTest, EveryScreenGetsANodeInTheListsOrderWithItsScale) {
    server.screens = {screen(1, {0, 0, 1000, 800}, 1.0), screen(2, {-1000, 0, 1000, 800}, 1.0),
                      screen(3, {0, 800, 1000, 800}, 1.0), screen(4, {1000, -300, 1000, 800}, 3.0)};
    server.productNames[1] = "Color LCD";
    server.addWindow(10, "Editor", 5, "On the fourth", {1100, 900, 300, 200});
    auto root = refresh();
    ASSERT_EQ(root->childCount(), 4u);
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(root->children()[i]->eidi, i + 1);
        EXPECT_EQ(root->children()[i]->isMainDisplay, i == 0);
        EXPECT_FLOAT_EQ(root->children()[i]->scaling, i == 3 ? 3.0f : 1.0f);
    }
    EXPECT_EQ(namesOf(root), (std::vector<std::string>{"Color LCD", "Display", "Display", "Display"}));
    EXPECT_FLOAT_EQ(inventory.measures.maxBackingScale, 3.0f);
    EXPECT_FLOAT_EQ(inventory.measures.mainScreenHeight, 800.0f);
    EXPECT_EQ(namesOf(root->children()[3]->children()[0]), (std::vector<std::string>{"On the fourth"}));
    // No screens at all keeps the last main screen height.
    server.screens.clear();
    EXPECT_TRUE(refresh()->isLeaf());
    EXPECT_FLOAT_EQ(inventory.measures.maxBackingScale, 0.0f);
    EXPECT_FLOAT_EQ(inventory.measures.mainScreenHeight, 800.0f);
}

TEST_F(InventoryTest, WindowsAreFiledUnderTheirApplicationFrontToBack) {
    server.addWindow(11, "Editor", 311, "Untitled", {100, 40, 800, 600});
    server.addWindow(12, "Terminal", 400, "bash", {200, 100, 600, 400});
    server.addWindow(13, "Editor", 311, "Notes", {300, 200, 400, 300}, 3);
    server.addWindow(14, nullptr, 70, nullptr, {0, 0, 100, 100});
    server.addWindow(15, "X", 80, "Y", {0, 0, 100, 100});  // fewer than two characters
    auto s = refresh()->children()[0];
    ASSERT_EQ(namesOf(s), (std::vector<std::string>{"Editor", "Terminal", "<no owner>", "<no owner>"}));
    auto editor = s->children()[0];
    EXPECT_EQ(namesOf(editor), (std::vector<std::string>{"Untitled", "Notes"}));
    auto notes = editor->children()[1];
    EXPECT_EQ(std::make_tuple(notes->eidi, notes->windowLevel, notes->listPosition), std::make_tuple(13u, 3, 2u));
    EXPECT_EQ(notes->parent(), editor);
    ASSERT_EQ(notes->screens.size(), 1u);
    EXPECT_EQ(notes->screens[0].lock(), s);
    EXPECT_FLOAT_EQ(notes->scaling, 2.0f);
    EXPECT_EQ(s->children()[2]->children()[0]->name, "<no title>");
    EXPECT_EQ(s->children()[3]->children()[0]->name, "<no title>");
}

TEST_F(InventoryTest, UnshareableWindowsAndWindowsOffEveryScreenLeaveNoTrace) {
    server.screens.push_back(screen(2, {1440, 0, 1920, 1200}, 1.0));  // a screen without windows stays
    server.addWindow(11, "Plenavue", 50, "Main window", {0, 0, 400, 300}).sharingState = 0;
    server.addWindow(12, "Editor", 60, "Far away", {5000, 5000, 100, 100});
    auto root = refresh();
    ASSERT_EQ(root->childCount(), 2u);
    EXPECT_TRUE(root->children()[0]->isLeaf());
    EXPECT_TRUE(root->children()[1]->isLeaf());

    server.failDisplayLookup = true;
    server.windows.clear();
    server.addWindow(13, "Editor", 60, "Lookup fails", {0, 0, 100, 100});
    EXPECT_TRUE(refresh()->children()[0]->isLeaf());
}

// The rules compare the owner's role; the tree shows the program's own name.
TEST_F(InventoryTest, SystemWindowsByTheirOwnersRoleAndLeavingThemOut) {
    auto& panel = server.addWindow(1, "Dock", 10, "Panel top", {0, 850, 1440, 50}, 20);
    panel.applicationName = "Panel";
    panel.applicationIcon = "org.xfce.panel";
    server.addWindow(2, "Dock", 10, "Oculith", {100, 200, 300, 50}, 20);
    server.addWindow(3, "Finder", 20, nullptr, {0, 0, 200, 200});
    server.addWindow(4, "Finder", 20, "D", {0, 0, 200, 200});
    server.addWindow(5, "Finder", 20, "Documents", {0, 0, 200, 200});
    server.addWindow(6, "Window Server", 30, "Desktop", {0, 0, 1440, 900}, -2147483624).applicationName = "Desktop";
    server.addWindow(7, "SystemUIServer", 40, "Clock", {1300, 0, 140, 22}, 25);
    server.addWindow(8, "Gtk3-demo", 50, "Oculith", {100, 200, 300, 50}).applicationName = "GTK Demo";
    server.addWindow(9, "XLogo", 60, "xlogo", {100, 100, 300, 200}).applicationName =
        "\x1b\x07";  // nothing readable: the role shows
    auto s = refresh()->children()[0];

    // The desktop window is never filed; its application node is pruned.
    ASSERT_EQ(namesOf(s), (std::vector<std::string>{"Panel", "Finder", "SystemUIServer", "GTK Demo", "XLogo"}));
    const auto dock = s->children()[0];
    EXPECT_EQ(std::tie(dock->role, dock->iconName), std::make_tuple("Dock", "org.xfce.panel"));
    EXPECT_TRUE(dock->children()[0]->isSystemWindow);
    EXPECT_EQ(dock->children()[1]->dimensions, (Rect{80, 200, 340, 50}));  // the dock reaches 20 points further
    auto finder = s->children()[1]->children();
    ASSERT_EQ(finder.size(), 3u);
    EXPECT_TRUE(finder[0]->isSystemWindow);   // untitled
    EXPECT_TRUE(finder[1]->isSystemWindow);   // one character: "<no title>"
    EXPECT_FALSE(finder[2]->isSystemWindow);  // a real title
    EXPECT_FALSE(s->children()[2]->children()[0]->isSystemWindow);
    const auto demo = s->children()[3];
    EXPECT_EQ(demo->role, "Gtk3-demo");
    EXPECT_EQ(demo->children()[0]->dimensions, (Rect{100, 200, 300, 50}));
    EXPECT_FALSE(demo->children()[0]->isSystemWindow);

    inventory.ignoreSystemWindows = true;
    EXPECT_EQ(namesOf(refresh()->children()[0]), (std::vector<std::string>{"GTK Demo", "XLogo"}));
    EXPECT_FALSE(inventory.isUnwanted(std::string("dock")));  // exact, case-sensitive
}

TEST_F(InventoryTest, AWindowOnSeveralScreensIsOneNodeFiledUnderEach) {
    // A 2x2 grid of 1000x800 screens, the main one at the lower left.
    server.screens = {screen(1, {0, 0, 1000, 800}, 1.0), screen(2, {1000, 0, 1000, 800}, 2.0),
                      screen(3, {0, 800, 1000, 800}, 1.0), screen(4, {1000, 800, 1000, 800}, 1.0)};
    server.addWindow(20, "Editor", 311, "Left", {0, 0, 100, 100});
    server.addWindow(21, "Editor", 311, "Centre", {900, -100, 200, 200});
    server.addWindow(22, "Dock", 80, "Oculith", {900, 700, 200, 50}, 20);
    const auto screens = refresh()->children();
    const auto centre = screens[3]->findParent(311)->children().at(0);
    ASSERT_EQ(centre->screens.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(centre->screens[i].lock(), screens[i]);
        const auto windows = screens[i]->findParent(311)->children();
        EXPECT_NE(std::find(windows.begin(), windows.end(), centre), windows.end()) << i;
    }
    EXPECT_FLOAT_EQ(centre->scaling, 2.0f);
    EXPECT_EQ(centre->parent(), screens[3]->children()[0]);
    EXPECT_EQ(screens[0]->findParent(311)->childCount(), 2u);
    // A system window that widens itself does so once, however many screens it is on.
    const auto oculith = screens[0]->findParent(80)->children().at(0);
    EXPECT_EQ(oculith, screens[1]->findParent(80)->children().at(0));
    EXPECT_EQ(oculith->dimensions, (Rect{880, 700, 240, 50}));
}

// Whatever a window server reports, no control character reaches the tree,
// the text outline or the JSON; Unicode stays as it is.
TEST_F(InventoryTest, ControlCharactersNeverReachTheTreeOrItsPrintedForms) {
    server.host = "host\x07name";
    server.productNames[1] = "LCD\r\n";
    server
        .addWindow(11,
                   "Edit\x9b"
                   "or",
                   311, "\x1b]0;pwned\x07\x1b[31mR\xC3\xA9sum\xC3\xA9\x7f \xE2\x80\x94 \xE6\x97\xA5\xE6\x9C\xAC",
                   {100, 40, 800, 600})
        .applicationName =
        "\xC2\x9b"
        "Editor\tPro";  // C1 CSI as UTF-8, and a tab
    const auto root = refresh();
    EXPECT_EQ(
        inventoryToText(*root),
        "hostname\n"
        "  LCD (x:0, y:0, w:1440, h:900, retina, main)\n"
        "    EditorPro (pid: 311)\n"
        "      ]0;pwned[31mR\xC3\xA9sum\xC3\xA9 \xE2\x80\x94 \xE6\x97\xA5\xE6\x9C\xAC (x:100, y:40, w:800, h:600)\n");
    const auto app = root->children()[0]->children()[0];
    EXPECT_EQ(app->role, "Edit\xEF\xBF\xBDor");  // a stray byte is repaired, not dropped
    const std::string json = inventoryToJson(*root);
    EXPECT_NE(json.find("\"name\": \"]0;pwned[31mR\xC3\xA9sum\xC3\xA9 \xE2\x80\x94 \xE6\x97\xA5\xE6\x9C\xAC\""),
              std::string::npos)
        << json;
    EXPECT_EQ(json.find("\\u00"), std::string::npos) << json;  // nothing left to escape
}

// Names are cut to 127 characters, never inside one; fewer than two give the fallback.
TEST(NodeName, CutsToCharactersKeepsUnicodeAndFallsBackBelowTwo) {
    const std::string e = "\xC3\xA9", kanji = "\xE6\x97\xA5", smile = "\xF0\x9F\x98\x80";
    const auto times = [](const std::string& s, int n) {
        std::string out;
        for (int i = 0; i < n; ++i) out += s;
        return out;
    };
    struct Case {
        std::string in, out;
    };
    for (const Case& c : {
             Case{"Caf\xC3\xA9 \xE2\x80\x94 Men\xC3\xBC", "Caf\xC3\xA9 \xE2\x80\x94 Men\xC3\xBC"},
             Case{std::string(200, 'x'), std::string(127, 'x')},
             Case{std::string(126, 'x') + kanji + kanji,
                  std::string(126, 'x') + kanji},                                // a 3-byte character at the cut
             Case{times(smile, 130), times(smile, 127)},                         // 508 bytes: characters count
             Case{times(e, 126) + "\x1b" + smile + "z", times(e, 126) + smile},  // controls go before the cut
             Case{std::string("ab\0cd", 5), "ab"},
             Case{std::string("a\0cd", 4), "fallback"},
             Case{smile, "fallback"},
             Case{"\x1b\x1b", "fallback"},
             Case{"Qt", "Qt"},
             Case{"a\xff", "a\xEF\xBF\xBD"},
         }) {
        EXPECT_EQ(nodeName(c.in, "fallback"), c.out) << c.in;
    }
}

}  // namespace
}  // namespace pv
