// The preview pane's arithmetic: sizing for a picture, placing it, the
// checkerboard, fits and zooms.
#include <gtest/gtest.h>

#include "preview/render_geometry.h"

using namespace pv;

namespace {

RenderGeometry withPicture(double w, double h, float scale = 1.0f) {
    RenderGeometry g;
    g.setImageSize({w, h});
    g.setScale(scale);
    return g;
}

const Rect kVisible{0, 0, 800, 600};

}  // namespace

TEST(RenderGeometryDraw, SmallWidePictureTakesTheVisibleAreaAndIsCentred) {
    auto g = withPicture(400, 300);
    const auto plan = g.drawPass(kVisible);
    EXPECT_EQ(plan.frame, kVisible);
    ASSERT_TRUE(plan.picture);
    EXPECT_EQ(*plan.picture, (Rect{200, 8, 400, 300}));
    EXPECT_EQ(g.pointerOffsetX(), 200.0f);
    EXPECT_EQ(g.pointerOffsetY(), 8.0f);
    // A second pass in the same area changes nothing.
    const auto again = g.drawPass(kVisible);
    EXPECT_EQ(again.frame, plan.frame);
    EXPECT_EQ(*again.picture, *plan.picture);
}

TEST(RenderGeometryDraw, PictureWiderThanTheAreaGrowsTheFrameAndKeepsTheMargin) {
    auto g = withPicture(1000, 500);
    const auto plan = g.drawPass(kVisible);
    EXPECT_EQ(plan.frame, (Rect{0, 0, 1016, 600}));
    EXPECT_EQ(*plan.picture, (Rect{8, 8, 1000, 500}));
    EXPECT_EQ(g.pointerOffsetX(), 8.0f);
}

TEST(RenderGeometryDraw, TallPictureIsTestedOnItsHeightOnly) {
    // Taller than the area: the height grows, the width keeps the larger of
    // the area's and the picture's.
    auto tall = withPicture(300, 1000);
    EXPECT_EQ(tall.drawPass(kVisible).frame, (Rect{0, 0, 800, 1016}));
    auto tallAndWide = withPicture(900, 1000);
    EXPECT_EQ(tallAndWide.drawPass(kVisible).frame, (Rect{0, 0, 916, 1016}));
    // A wide picture narrower than the area gets the area's frame even when
    // it is taller than the area.
    auto wideButHigh = withPicture(700, 650);
    EXPECT_EQ(wideButHigh.drawPass(kVisible).frame, kVisible);
}

TEST(RenderGeometryDraw, VisibleOriginIsTakenAsItIs) {
    auto g = withPicture(100, 50);
    const Rect offset{3, 4, 800, 600};
    EXPECT_EQ(g.drawPass(offset).frame, offset);
}

TEST(RenderGeometryDraw, ScaleSizesFrameAndPicture) {
    auto g = withPicture(2000, 1000, 0.5f);
    const auto plan = g.drawPass(kVisible);
    EXPECT_EQ(plan.frame, (Rect{0, 0, 1016, 600}));
    EXPECT_EQ(*plan.picture, (Rect{8, 8, 1000, 500}));
}

TEST(RenderGeometryDraw, WithoutAPictureOnlyTheCheckerboardIsPlanned) {
    RenderGeometry g;
    g.setFrame({0, 0, 20, 20});
    const auto plan = g.drawPass(kVisible);
    EXPECT_EQ(plan.frame, (Rect{0, 0, 20, 20}));
    EXPECT_FALSE(plan.picture);
    EXPECT_EQ(plan.checkerboard.rows, 3);
    EXPECT_EQ(g.pointerOffsetX(), 0.0f);
    EXPECT_EQ(g.pointerOffsetY(), 0.0f);
}

TEST(RenderGeometryCheckerboard, CountsSquaresBeyondTheFrame) {
    const auto b20 = RenderGeometry::checkerboardFor({20, 20});
    EXPECT_EQ(b20.rows, 3);
    EXPECT_EQ(b20.columns, 3);
    // 16 by 16 also gets 3 by 3: the last row and column lie wholly outside.
    const auto b16 = RenderGeometry::checkerboardFor({16, 16});
    EXPECT_EQ(b16.rows, 3);
    EXPECT_EQ(b16.columns, 3);
    EXPECT_EQ(RenderGeometry::Checkerboard::square(2, 2).minX(), 16.0);
    const auto wide = RenderGeometry::checkerboardFor({100, 7});
    EXPECT_EQ(wide.rows, 1);
    EXPECT_EQ(wide.columns, 13);
    // A degenerate frame draws nothing.
    const auto none = RenderGeometry::checkerboardFor({40, -10});
    EXPECT_EQ(none.rows, 0);
    EXPECT_EQ(none.columns, 0);
    // A frame zoomed far beyond the integers keeps counts that fit.
    const auto vast = RenderGeometry::checkerboardFor({1e300, 1e15});
    EXPECT_EQ(vast.rows, 1'000'000'000);
    EXPECT_EQ(vast.columns, 1'000'000'000);
}

TEST(RenderGeometryCheckerboard, GreySquaresAlternateFromAWhiteCorner) {
    using B = RenderGeometry::Checkerboard;
    EXPECT_FALSE(B::isGrey(0, 0));
    EXPECT_TRUE(B::isGrey(0, 1));
    EXPECT_TRUE(B::isGrey(1, 0));
    EXPECT_FALSE(B::isGrey(1, 1));
    EXPECT_EQ(B::square(1, 2), (Rect{16, 8, 8, 8}));
}

TEST(RenderGeometryFit, FitAllOfAWidePictureUsesTheWidth) {
    auto g = withPicture(2880, 1800);
    g.fitAll({800, 600});
    EXPECT_EQ(g.scale(), static_cast<float>(784.0 / 2880.0));
    EXPECT_NEAR(g.scale(), 0.27222222f, 1e-7);
    EXPECT_EQ(g.frame(), (Rect{0, 0, 784, 584}));
}

TEST(RenderGeometryFit, FitAllOfATallPictureUsesTheHeight) {
    auto g = withPicture(1000, 2000);
    g.fitAll({800, 600});
    EXPECT_EQ(g.scale(), 0.292f);
}

TEST(RenderGeometryFit, FitAllPicksTheAxisByShapeNotByTheQuotients) {
    // Nearly square in a wide, low pane: fitted by width, so it still
    // overflows the height.
    auto g = withPicture(1000, 990);
    g.fitAll({1016, 316});
    EXPECT_EQ(g.scale(), 1.0f);
    auto h = withPicture(2000, 1990);
    h.fitAll({1016, 316});
    EXPECT_EQ(h.scale(), 0.5f);
    EXPECT_GT(h.scale() * 1990, 300);
}

TEST(RenderGeometryFit, FitsNeverEnlarge) {
    auto g = withPicture(400, 300, 3.0f);
    g.fitAll({800, 600});
    EXPECT_EQ(g.scale(), 1.0f);
    g.setScale(3.0f);
    g.fitWidth({800, 600});
    EXPECT_EQ(g.scale(), 1.0f);
}

TEST(RenderGeometryFit, FitWidthKeepsTheFullHeight) {
    auto g = withPicture(2880, 1800);
    g.fitWidth({800, 600});
    EXPECT_EQ(g.scale(), static_cast<float>(784.0 / 2880.0));
    EXPECT_EQ(g.frame(), (Rect{0, 0, 784, 600}));
}

TEST(RenderGeometryFit, WithoutAPictureTheScaleBecomesOne) {
    RenderGeometry g;
    g.setScale(0.25f);
    g.fitAll({800, 600});
    EXPECT_EQ(g.scale(), 1.0f);
    EXPECT_EQ(g.frame(), (Rect{0, 0, 784, 584}));
    g.setScale(0.25f);
    g.fitWidth({800, 600});
    EXPECT_EQ(g.scale(), 1.0f);
}

TEST(RenderGeometryFit, APaneNoLargerThanTheMarginsKeepsTheScale) {
    auto g = withPicture(400, 300, 0.5f);
    g.fitAll({16, 10});
    EXPECT_EQ(g.scale(), 0.5f);
    g.fitWidth({12, 400});
    EXPECT_EQ(g.scale(), 0.5f);
}

TEST(RenderGeometryZoom, ZoomInMultipliesInSinglePrecisionWithoutLimit) {
    auto g = withPicture(400, 300);
    g.setFrame({0, 0, 800, 600});
    g.zoomIn();
    EXPECT_EQ(g.scale(), 1.10000002f);
    EXPECT_EQ(g.frame(), (Rect{0, 0, 800 * 1.1, 600 * 1.1}));
    g.zoomIn();
    EXPECT_EQ(g.scale(), 1.21000004f);
    for (int i = 0; i < 100; ++i) g.zoomIn();
    EXPECT_GT(g.scale(), 10000.0f);
}

TEST(RenderGeometryZoom, ZoomOutNeverShrinksTheFrameBelowTheVisibleArea) {
    auto g = withPicture(400, 300);
    g.setFrame({0, 0, 900, 700});
    g.zoomOut(kVisible);
    EXPECT_EQ(g.scale(), 0.9f);
    EXPECT_EQ(g.frame(), (Rect{0, 0, 810, 630}));
    g.setFrame({0, 0, 850, 650});
    g.zoomOut(kVisible);
    EXPECT_EQ(g.frame(), (Rect{0, 0, 800, 600}));
    // Each axis on its own.
    g.setFrame({0, 0, 2000, 650});
    g.zoomOut(kVisible);
    EXPECT_EQ(g.frame(), (Rect{0, 0, 1800, 600}));
}

TEST(RenderGeometryZoom, ZoomOutHasNoLowerLimitAndTheNextPassFollowsTheScale) {
    auto g = withPicture(1000, 500);
    for (int i = 0; i < 50; ++i) g.zoomOut(kVisible);
    EXPECT_GT(g.scale(), 0.0f);
    EXPECT_LT(g.scale(), 0.01f);
    // The next drawing pass sizes the frame from the new scale.
    g.setScale(2.0f);
    g.zoomIn();
    const auto plan = g.drawPass(kVisible);
    EXPECT_EQ(plan.frame, (Rect{0, 0, 2216, 1116}));
    EXPECT_EQ(*plan.picture, (Rect{8, 8, 2200, 1100}));
}
