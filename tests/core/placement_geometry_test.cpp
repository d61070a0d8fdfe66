// Where a window lands: on the preview canvas of a selection, and as a layer
// of the document.
#include <gtest/gtest.h>

#include "capture/selection_geometry.h"
#include "document/layer_placement.h"

using namespace pv;

namespace {

// A window node; the tests read it through a reference.
const PVWindowElement& windowAt(Rect bounds, float shadowX = 0, float shadowY = 0) {
    static std::vector<PVWindowElement::Ptr> keep;
    auto w = std::make_shared<PVWindowElement>();
    w->kind = PVElementKindWindow;
    w->dimensions = bounds;
    w->shadowX = shadowX;
    w->shadowY = shadowY;
    keep.push_back(w);
    return *w;
}

}  // namespace

TEST(SelectionDestination, WindowsLandWhereTheyStoodOnTheCanvas) {
    struct Case {
        const char* what;
        PixelRect canvas;
        WindowRect bounds;
        float shadowX, shadowY;
        CanvasRect expected;
    };
    // Main screen 1440x900 points at factor 2 (canvas 2880x1800); a second
    // 1920x1080 to its right at y -180 (canvas origin 2880, -360).
    const Case cases[] = {
        {"top edge 50 points down is 100 pixels down", {0, 0, 2880, 1800}, {100, 50, 800, 600}, 0, 0,
         {200, 100, 1600, 1200}},
        {"shadow margins move it left and up, unscaled", {0, 0, 2880, 1800}, {100, 50, 800, 600}, 28, 24,
         {172, 76, 1600, 1200}},
        {"the second screen's canvas origin is subtracted", {2880, -360, 3840, 2160}, {1500, 0, 400, 300}, 0, 0,
         {120, 0, 800, 600}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(selectionDestination(c.bounds, c.shadowX, c.shadowY, c.canvas, 2.0f, 900.0f), c.expected);
    }
}

TEST(LayerPixelSize, ShotAtLeastAsWideAsTheWindowKeepsItsOwnSize) {
    const auto& w = windowAt({0, 0, 800, 600});
    EXPECT_EQ(layerPixelSize(w, 2.0f, 1712, 1344), (Size{1712, 1344}));
    EXPECT_EQ(layerPixelSize(w, 2.0f, 1600, 1200), (Size{1600, 1200}));
}

TEST(LayerPixelSize, NarrowerShotIsStretchedToTheWindowAtScale) {
    const auto& w = windowAt({0, 0, 800, 600});
    EXPECT_EQ(layerPixelSize(w, 2.0f, 800, 600), (Size{1600, 1200}));
}

TEST(LayerLocation, SubtractsOutputOriginAndShadowAsStored) {
    const auto& w = windowAt({100, 40, 800, 600}, 10, 6);
    const CanvasRect loc = layerLocation(w, {1620, 1212}, 0, 2.0f, 0.0f);
    EXPECT_DOUBLE_EQ(loc.x, 190);  // 2 * 100 - 0 - 10
    EXPECT_DOUBLE_EQ(loc.y, 74);   // 2 * 40 - 6
    EXPECT_DOUBLE_EQ(loc.width, 1620);
    EXPECT_DOUBLE_EQ(loc.height, 1212);
}

TEST(LayerLocation, ScreenTopOffsetLowersEveryLayer) {
    // A taller second screen stands 300 points above the main one.
    const auto& w = windowAt({1500, -300, 400, 300});
    const CanvasRect loc = layerLocation(w, {400, 300}, 0, 1.0f, 300.0f);
    EXPECT_DOUBLE_EQ(loc.y, 0);
    EXPECT_DOUBLE_EQ(loc.x, 1500);
}

TEST(UngroupedLayerName, JoinsApplicationAndWindow) {
    EXPECT_EQ(ungroupedLayerName("Editor", "Untitled"), "Editor - Untitled");
}
