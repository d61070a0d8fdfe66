// Which windows a node stands for, their stacking order, the canvas they are
// laid out on, and how one window's picture is taken.
#include <gtest/gtest.h>

#include "capture/output_geometry.h"
#include "capture/window_collection.h"
#include "capture/window_shot.h"
#include "tests/core/fake_window_server.h"

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

// ---- collection and order ---------------------------------------------------

TEST(CollectWindows, WalksDepthFirstAndKeepsDuplicates) {
    auto root = make(PVElementKindRoot, 0);
    auto s1 = make(PVElementKindScreen, 1);
    auto s2 = make(PVElementKindScreen, 2);
    auto a = make(PVElementKindApplication, 10);
    auto b = make(PVElementKindApplication, 10);
    auto empty = make(PVElementKindApplication, 20);
    auto w1 = make(PVElementKindWindow, 101);
    auto w2 = make(PVElementKindWindow, 102);
    auto inner = make(PVElementKindWindow, 999);
    root->addChild(s1);
    root->addChild(s2);
    s1->addChild(a);
    s1->addChild(empty);
    s2->addChild(b);
    a->addChild(w1);
    a->addChild(w2);
    b->addChild(w2);
    w1->addChild(inner);  // a window's own children are never visited

    std::vector<PVWindowElement::Ptr> list;
    collectWindows(root, list);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{101, 102, 102}));
    list.clear();
    collectWindows(w1, list);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{101}));
    list.clear();
    collectWindows(empty, list);
    EXPECT_TRUE(list.empty());
}

TEST(LayerOrder, HigherLevelsFirstAndEqualLevelsKeepTheirOrder) {
    std::vector<PVWindowElement::Ptr> list{make(3, 1, {}, 0), make(3, 2, {}, 25), make(3, 3, {}, 0),
                                           make(3, 4, {}, -20), make(3, 5, {}, 25)};
    sortIntoLayerOrder(list);
    EXPECT_EQ(numbers(list), (std::vector<uint32_t>{2, 5, 1, 3, 4}));
}

// ---- output rectangle -------------------------------------------------------

class OutputRectTest : public ::testing::Test {
protected:
    PVWindowElement::Ptr root = make(PVElementKindRoot, 0);
    PVWindowElement::Ptr main = make(PVElementKindScreen, 1, {0, 0, 1440, 900});
    PVWindowElement::Ptr second = make(PVElementKindScreen, 2, {1440, -180, 1920, 1080});
    void SetUp() override {
        root->addChild(main);
        root->addChild(second);
    }
    PVWindowElement::Ptr on(const PVWindowElement::Ptr& s1, const PVWindowElement::Ptr& s2 = nullptr) {
        auto w = make(PVElementKindWindow, 7);
        w->screen1 = s1;
        w->screen2 = s2;
        return w;
    }
};

TEST_F(OutputRectTest, TheTableOfScreensAndWindows) {
    EXPECT_EQ(getOutputRect({on(main), on(main)}, *root, 2), (PixelRect{0, 0, 2880, 1800}));
    EXPECT_EQ(getOutputRect({on(main), on(second)}, *root, 2), (PixelRect{0, -360, 6720, 2160}));
    EXPECT_EQ(getOutputRect({on(second), on(main)}, *root, 2), (PixelRect{0, -360, 6720, 2160}));
    EXPECT_EQ(getOutputRect({on(main, second)}, *root, 2), (PixelRect{0, -360, 6720, 2160}));
    EXPECT_EQ(getOutputRect({on(second), on(second)}, *root, 2), (PixelRect{2880, -360, 3840, 2160}));
    EXPECT_EQ(getOutputRect({}, *root, 2), (PixelRect{}));
    EXPECT_EQ(getOutputRect({on(main)}, *root, 1), (PixelRect{0, 0, 1440, 900}));
}

TEST_F(OutputRectTest, StackedScreensAddWidthsAndTakeTheTallerHeight) {
    second->dimensions = {0, 900, 1920, 1200};
    EXPECT_EQ(getOutputRect({on(main), on(second)}, *root, 1), (PixelRect{0, 0, 3360, 1200}));
}

TEST_F(OutputRectTest, WindowsWithoutAScreenCountAsNone) {
    EXPECT_EQ(getOutputRect({on(nullptr)}, *root, 2), (PixelRect{}));
    // A screen-less window after a screened one pairs with the zero rectangle.
    second->dimensions = {-1920, -180, 1920, 1080};
    EXPECT_EQ(getOutputRect({on(second), on(nullptr)}, *root, 1), (PixelRect{-1920, -180, 1920, 1080}));
}

// ---- window shots -----------------------------------------------------------

class WindowShotTest : public ::testing::Test {
protected:
    test::FakeWindowServer server;
    PVWindowElement::Ptr window = make(PVElementKindWindow, 41, {100, 40, 800, 600});
    void SetUp() override { window->scaling = 2.0f; }
};

TEST_F(WindowShotTest, AShadowedShotGivesMarginsInPoints) {
    server.pictures[41] = Image(1712, 1344);
    getShot(*window, server, true);
    ASSERT_TRUE(window->shot);
    EXPECT_EQ(window->shot->width, 1712);
    EXPECT_FLOAT_EQ(window->shadowX, 28);
    EXPECT_FLOAT_EQ(window->shadowY, 24);
    ASSERT_EQ(server.requests.size(), 1u);
    EXPECT_FALSE(server.requests[0].bounds);
    EXPECT_TRUE(server.requests[0].framing);
}

TEST_F(WindowShotTest, SystemWindowsAreTakenByTheirBoundsWithoutShadow) {
    window->isSystemWindow = true;
    server.pictures[41] = Image(1600, 1200);
    getShot(*window, server, true);
    ASSERT_TRUE(window->shot);
    ASSERT_TRUE(server.requests[0].bounds);
    EXPECT_EQ(*server.requests[0].bounds, window->windowBounds());
    EXPECT_FALSE(server.requests[0].framing);
    EXPECT_EQ(window->shadowX, 0);
    EXPECT_EQ(window->shadowY, 0);
}

TEST_F(WindowShotTest, WithoutShadowTheMarginsAreLeftAlone) {
    window->shadowX = 5;
    server.pictures[41] = Image(1600, 1200);
    getShot(*window, server, false);
    EXPECT_FALSE(server.requests[0].framing);
    EXPECT_EQ(window->shadowX, 5);
}

TEST_F(WindowShotTest, TooSmallOrMissingPicturesLeaveTheNodeAsItWas) {
    getShot(*window, server, true);
    EXPECT_FALSE(window->shot);
    server.pictures[41] = Image(1, 300);
    getShot(*window, server, true);
    EXPECT_FALSE(window->shot);
    EXPECT_EQ(window->shadowX, 0);
    server.pictures[41] = Image(2, 2);
    getShot(*window, server, false);
    ASSERT_TRUE(window->shot);
    const auto first = window->shot;
    getShot(*window, server, false);  // a new picture every time
    EXPECT_NE(window->shot, first);
}

TEST_F(WindowShotTest, ALowResolutionShotStillGetsPositiveMargins) {
    server.pictures[41] = Image(800, 600);  // taken at scale 1 although the window is at 2
    getShot(*window, server, true);
    EXPECT_FLOAT_EQ(window->shadowX, 200);
    EXPECT_FLOAT_EQ(window->shadowY, 100);
}

}  // namespace
}  // namespace pv
