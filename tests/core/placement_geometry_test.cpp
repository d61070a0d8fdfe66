// Where a window lands: on the preview canvas of a selection, and as a layer
// of the document.
#include <gtest/gtest.h>

#include "capture/selection_geometry.h"
#include "document/layer_placement.h"

using namespace pv;

namespace {

// A window node whose shot was taken at `scaling` (0: none known).
const PVWindowElement& windowAt(Rect bounds, float shadowX = 0, float shadowY = 0, float scaling = 0) {
    static std::vector<PVWindowElement::Ptr> keep;
    auto w = std::make_shared<PVWindowElement>();
    w->kind = PVElementKindWindow;
    w->dimensions = bounds;
    w->shadowX = shadowX;
    w->shadowY = shadowY;
    w->scaling = scaling;
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
        {"top edge 50 points down is 100 pixels down",
         {0, 0, 2880, 1800},
         {100, 50, 800, 600},
         0,
         0,
         {200, 100, 1600, 1200}},
        {"shadow margins move it left and up, unscaled",
         {0, 0, 2880, 1800},
         {100, 50, 800, 600},
         28,
         24,
         {172, 76, 1600, 1200}},
        {"the second screen's canvas origin is subtracted",
         {2880, -360, 3840, 2160},
         {1500, 0, 400, 300},
         0,
         0,
         {120, 0, 800, 600}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(selectionDestination(c.bounds, c.shadowX, c.shadowY, c.canvas, 2.0f, 900.0f), c.expected);
    }
}

TEST(LayerPixelSize, AShotKeepsItsSizeUnlessNarrowerThanTheWindowAtScale) {
    const auto& w = windowAt({0, 0, 800, 600});
    EXPECT_EQ(layerPixelSize(w, 2.0f, 1712, 1344), (Size{1712, 1344}));
    EXPECT_EQ(layerPixelSize(w, 2.0f, 1600, 1200), (Size{1600, 1200}));
    EXPECT_EQ(layerPixelSize(w, 2.0f, 800, 600), (Size{1600, 1200}));
}

TEST(LayerLocation, TheWindowsPlaceOnTheCanvasForAnyArrangement) {
    struct Case {
        const char* what;
        PixelRect canvas;  // bottom-up pixels at scale s
        double s;
        WindowRect bounds;
        CanvasRect expected;
    };
    // The main screen is 1280x800 points in every case.
    const Case cases[] = {
        {"main screen alone", {0, 0, 1280, 800}, 1, {100, 40, 300, 200}, {100, 40, 300, 200}},
        {"at scale 2", {0, 0, 2560, 1600}, 2, {100, 40, 300, 200}, {200, 80, 600, 400}},
        {"a screen stacked above the main one", {0, 0, 1280, 1600}, 1, {100, -700, 300, 200}, {100, 100, 300, 200}},
        {"a screen stacked below the main one", {0, -800, 1280, 1600}, 1, {100, 900, 300, 200}, {100, 900, 300, 200}},
        {"a taller screen to the left, its top higher",
         {-1600, 0, 2880, 1100},
         1,
         {-1500, -250, 300, 200},
         {100, 50, 300, 200}},
        {"main at the lower right of a grid", {-1280, 0, 2560, 1600}, 1, {-100, -100, 300, 200}, {1180, 700, 300, 200}},
        {"a selection of the upper screen only", {0, 800, 1280, 800}, 1, {100, -700, 300, 200}, {100, 100, 300, 200}},
        {"half-pixel edges round", {0, 0, 1920, 1200}, 1.5, {100.5, 40.5, 300, 200}, {151, 61, 450, 300}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto& w = windowAt(retagged<AnySpace>(c.bounds));
        const Size size{c.bounds.width * c.s, c.bounds.height * c.s};
        EXPECT_EQ(layerLocation(w, size, size, c.canvas, c.s, 800), c.expected);
    }
}

TEST(LayerLocation, ShadowMarginsArePointsOfTheShotMadePixels) {
    struct Case {
        const char* what;
        float shotScale;  // the window's scaling: the shot's own scale
        double s;         // the canvas scale
        Size layer, shot;
        CanvasRect expected;
    };
    // A 300x200-point window at (100, 40) with margins of 24 points left and 16 above.
    const Case cases[] = {
        {"scale 1", 1, 1, {348, 248}, {348, 248}, {76, 24, 348, 248}},
        {"scale 2: 48 and 32 pixels", 2, 2, {696, 496}, {696, 496}, {152, 48, 696, 496}},
        // The margins stretch with the shot: 24 * 600/348 = 41.4 and 16 * 400/248 = 25.8 pixels.
        {"a shot at scale 1 stretched to a scale 2 canvas", 1, 2, {600, 400}, {348, 248}, {159, 54, 600, 400}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto& w = windowAt({100, 40, 300, 200}, 24, 16, c.shotScale);
        EXPECT_EQ(layerLocation(w, c.layer, c.shot, {0, 0, 1280 * c.s, 800 * c.s}, c.s, 800), c.expected);
    }
}
