// Which windows a node stands for, their stacking order, the canvas they are
// laid out on, and how one window's picture is taken.
#include <gtest/gtest.h>

#include "capture/output_geometry.h"
#include "capture/window_collection.h"
#include "capture/window_shot.h"
#include "tests/core/fake_window_server.h"
#include "tests/support/tree_builders.h"

namespace pv {
namespace {

PVWindowElement::Ptr make(uint32_t kind, uint32_t eidi, Rect d = {}, int32_t level = 0) {
    auto n = std::make_shared<PVWindowElement>();
    n->kind = kind;
    n->eidi = eidi;
    n->dimensions = d;
    n->windowLevel = level;
    return n;
}

std::vector<uint32_t> numbers(const std::vector<PVWindowElement::Ptr>& list) {
    std::vector<uint32_t> out;
    for (const auto& n : list) out.push_back(n->eidi);
    return out;
}

// Depth first, a window under two screens twice, a window's own children never;
// duplicates then go by node, not by number.
TEST(CollectWindows, WalksDepthFirstAndDuplicatesGoByNode) {
    const auto t = test::sampleTree();
    test::addNode(t.across, PVElementKindWindow, "inner", {}, 999);
    std::vector<PVWindowElement::Ptr> list;
    collectWindows(t.root, list);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{51, 53, 55, 51}));
    collectWindows(t.terminal, list);
    collectWindows(t.notes, list);
    list.push_back(make(PVElementKindWindow, 51));
    removeDuplicates(list);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{51, 53, 55, 51}));
    EXPECT_NE(list[0], list[3]);
}

TEST(LayerOrder, HigherLevelsFirstThenTheWindowListsOrder) {
    // Collected per application (1, 3 of one, 2, 4, 5 of others); the list had 1..5 front to back.
    const auto at = [](uint32_t number, int32_t level, uint32_t position) {
        auto w = make(PVElementKindWindow, number, {}, level);
        w->listPosition = position;
        return w;
    };
    std::vector<PVWindowElement::Ptr> list{at(1, 0, 0),  at(3, 0, 2),   at(2, 0, 1),
                                           at(5, 25, 4), at(4, -20, 3), at(6, 25, 5)};
    sortIntoLayerOrder(list);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{5, 6, 1, 2, 3, 4}));
}

// Screens in bottom-up points, main at (0, 0): a 2x2 grid whose main screen is
// the lower right one, and a taller screen standing above the grid's top.
class OutputRectTest : public ::testing::Test {
protected:
    PVWindowElement::Ptr root = make(PVElementKindRoot, 0);
    PVWindowElement::Ptr main = make(PVElementKindScreen, 1, {0, 0, 1280, 800});
    PVWindowElement::Ptr west = make(PVElementKindScreen, 2, {-1280, 0, 1280, 800});
    PVWindowElement::Ptr north = make(PVElementKindScreen, 3, {0, 800, 1280, 800});
    PVWindowElement::Ptr northWest = make(PVElementKindScreen, 4, {-1280, 800, 1280, 800});
    PVWindowElement::Ptr tall = make(PVElementKindScreen, 5, {1280, 300, 1000, 1500});
    void SetUp() override {
        for (const auto& s : {main, west, north, northWest, tall}) root->addChild(s);
    }
    PVWindowElement::Ptr on(std::vector<PVWindowElement::Ptr> screens) {
        auto w = make(PVElementKindWindow, 7);
        for (const auto& s : screens) w->screens.push_back(s);
        return w;
    }
};

TEST_F(OutputRectTest, TheScreensTheWindowsStandOnTogether) {
    struct Case {
        const char* what;
        std::vector<std::vector<PVWindowElement::Ptr>> windows;  // each window's screens
        float scale;
        PixelRect expected;
    };
    const Case cases[] = {
        {"one screen", {{main}, {main}}, 2, {0, 0, 2560, 1600}},
        {"side by side", {{west}, {main}}, 1, {-1280, 0, 2560, 800}},
        {"stacked", {{north}, {main}}, 1, {0, 0, 1280, 1600}},
        {"one window on four screens", {{main, west, north, northWest}}, 1, {-1280, 0, 2560, 1600}},
        {"a grid corner and a taller neighbour", {{northWest}, {tall}}, 1, {-1280, 300, 3560, 1500}},
        {"a screen further away", {{west}, {tall}}, 2, {-2560, 0, 7120, 3600}},
        {"no windows", {}, 2, {}},
        {"windows without a screen", {{}, {}}, 2, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<PVWindowElement::Ptr> windows;
        for (const auto& screens : c.windows) windows.push_back(on(screens));
        EXPECT_EQ(getOutputRect(windows, c.scale), c.expected);
    }
}

TEST_F(OutputRectTest, TheDesktopIsEveryScreenWhereverTheWindowsAre) {
    EXPECT_EQ(getDesktopRect(*root, 1), (PixelRect{-1280, 0, 3560, 1800}));
    EXPECT_EQ(getDesktopRect(*root, 2), (PixelRect{-2560, 0, 7120, 3600}));
    EXPECT_EQ(getDesktopRect(*make(PVElementKindRoot, 0), 2), (PixelRect{}));
}

// One window of 800x600 points at scale 2, taken by the rules for its kind.
TEST(WindowShot, PictureRequestAndShadowMarginsInPoints) {
    struct Case {
        const char* what;
        bool system, shadow;
        std::optional<std::pair<int, int>> picture;  // what the server hands back
        bool framed, byBounds, shot;
        float shadowX, shadowY;  // after the shot; 5, 7 before it
    };
    const Case cases[] = {
        {"shadowed", false, true, {{1712, 1344}}, true, false, true, 28, 24},
        {"shadowed at scale 1", false, true, {{800, 600}}, true, false, true, 200, 100},
        {"system window", true, true, {{1600, 1200}}, false, true, true, 5, 7},
        {"without shadow", false, false, {{1600, 1200}}, false, false, true, 5, 7},
        {"no picture", false, true, std::nullopt, true, false, false, 5, 7},
        {"a picture one pixel wide", false, true, {{1, 300}}, true, false, false, 5, 7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        test::FakeWindowServer server;
        auto window = make(PVElementKindWindow, 41, {100, 40, 800, 600});
        window->scaling = 2.0f;
        window->isSystemWindow = c.system;
        window->shadowX = 5;
        window->shadowY = 7;
        if (c.picture) server.pictures[41] = Image(c.picture->first, c.picture->second);
        getShot(*window, server, c.shadow);
        ASSERT_EQ(server.requests.size(), 1u);
        EXPECT_EQ(server.requests[0].framing, c.framed);
        EXPECT_EQ(server.requests[0].bounds, c.byBounds ? std::optional(window->windowBounds()) : std::nullopt);
        EXPECT_EQ(bool(window->shot), c.shot);
        if (c.shot) {
            EXPECT_EQ(window->shot->width, c.picture->first);
        }
        EXPECT_FLOAT_EQ(window->shadowX, c.shadowX);
        EXPECT_FLOAT_EQ(window->shadowY, c.shadowY);
        if (!c.shot) continue;
        const auto first = window->shot;
        getShot(*window, server, c.shadow);  // a new picture every time
        EXPECT_NE(window->shot, first);
    }
}

}  // namespace
}  // namespace pv
