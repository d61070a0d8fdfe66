// The preview pane's arithmetic: sizing for a picture, placing it, the
// checkerboard, fits and zooms.
#include <gtest/gtest.h>

#include <optional>

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

TEST(RenderGeometryDraw, TheFrameCoversTheAreaAndGrowsPastItWithTheMargin) {
    struct Case {
        const char* what;
        double w, h;
        float scale;
        Rect visible, frame, picture;
    };
    const Case cases[] = {
        {"small: centred in the area", 400, 300, 1, kVisible, kVisible, {200, 8, 400, 300}},
        {"wider than the area", 1000, 500, 1, kVisible, {0, 0, 1016, 600}, {8, 8, 1000, 500}},
        {"taller: only the height grows", 300, 1000, 1, kVisible, {0, 0, 800, 1016}, {250, 8, 300, 1000}},
        {"taller and wider", 900, 1000, 1, kVisible, {0, 0, 916, 1016}, {8, 8, 900, 1000}},
        {"wide, narrower than the area but taller", 700, 650, 1, kVisible, kVisible, {50, 8, 700, 650}},
        {"the visible origin is taken as it is", 100, 50, 1, {3, 4, 800, 600}, {3, 4, 800, 600}, {350, 8, 100, 50}},
        {"scale sizes frame and picture", 2000, 1000, 0.5f, kVisible, {0, 0, 1016, 600}, {8, 8, 1000, 500}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto g = withPicture(c.w, c.h, c.scale);
        for (int pass = 0; pass < 2; ++pass) {  // a second pass in the same area changes nothing
            const auto plan = g.drawPass(c.visible);
            EXPECT_EQ(plan.frame, c.frame);
            ASSERT_TRUE(plan.picture);
            EXPECT_EQ(*plan.picture, c.picture);
            EXPECT_EQ(g.pointerOffsetX(), c.picture.x);
            EXPECT_EQ(g.pointerOffsetY(), c.picture.y);
        }
    }
}

// Squares of 8 points from a white corner, as many as reach into the frame
// (a frame zoomed far beyond the integers keeps counts that fit); without a
// picture only the checkerboard is planned.
TEST(RenderGeometryCheckerboard, CountsSquaresReachingIntoTheFrame) {
    for (const auto& [frame, rows, columns] : {std::tuple{Size{20, 20}, 3, 3},
                                               {Size{16, 16}, 3, 3},
                                               {Size{100, 7}, 1, 13},
                                               {Size{40, -10}, 0, 0},
                                               {Size{1e300, 1e15}, 1'000'000'000, 1'000'000'000}}) {
        const auto board = RenderGeometry::checkerboardFor(frame);
        EXPECT_EQ(std::tie(board.rows, board.columns), std::tie(rows, columns)) << frame.width << "x" << frame.height;
    }
    using B = RenderGeometry::Checkerboard;
    EXPECT_EQ(std::make_tuple(B::isGrey(0, 0), B::isGrey(0, 1), B::isGrey(1, 0), B::isGrey(1, 1)),
              std::make_tuple(false, true, true, false));
    EXPECT_EQ(B::square(1, 2), (Rect{16, 8, 8, 8}));

    RenderGeometry g;
    g.setFrame({0, 0, 20, 20});
    const auto plan = g.drawPass(kVisible);
    EXPECT_EQ(plan.frame, (Rect{0, 0, 20, 20}));
    EXPECT_FALSE(plan.picture);
    EXPECT_EQ(plan.checkerboard.rows, 3);
}

// Fits pick the axis by shape, not by the quotients; they never enlarge; a
// pane no larger than the margins keeps the scale; no picture gives scale 1.
TEST(RenderGeometryFit, FitAllAndFitWidth) {
    struct Case {
        double w, h;  // 0 by 0: no picture
        float start;
        Size pane;
        float all;
        std::optional<float> width;
    };
    const Case cases[] = {
        {2880, 1800, 1, {800, 600}, static_cast<float>(784.0 / 2880.0), static_cast<float>(784.0 / 2880.0)},
        {1000, 2000, 1, {800, 600}, 0.292f, std::nullopt},  // tall: by the height
        // Nearly square in a wide, low pane: fitted by width, so it still overflows the height.
        {1000, 990, 1, {1016, 316}, 1.0f, 1.0f},
        {2000, 1990, 1, {1016, 316}, 0.5f, 0.5f},
        {400, 300, 3, {800, 600}, 1.0f, 1.0f},
        {0, 0, 0.25f, {800, 600}, 1.0f, 1.0f},
        {400, 300, 0.5f, {16, 10}, 0.5f, 0.5f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " in " << c.pane.width << "x" << c.pane.height);
        RenderGeometry g;
        if (c.w > 0) g.setImageSize({c.w, c.h});
        g.setScale(c.start);
        g.fitAll(c.pane);
        EXPECT_EQ(g.scale(), c.all);
        if (!c.width) continue;
        g.setScale(c.start);
        g.fitWidth(c.pane);
        EXPECT_EQ(g.scale(), *c.width);
    }
    auto g = withPicture(2880, 1800);
    g.fitAll({800, 600});
    EXPECT_EQ(g.frame(), (Rect{0, 0, 784, 584}));
    g.fitWidth({800, 600});
    EXPECT_EQ(g.frame(), (Rect{0, 0, 784, 600}));  // the full height
}

// Zooming in multiplies by 1.1 in single precision without limit; zooming out
// has no lower limit but never shrinks the frame below the visible area; the
// next drawing pass sizes the frame from the new scale.
TEST(RenderGeometryZoom, StepsOfATenthAndAFrameNeverSmallerThanTheArea) {
    auto g = withPicture(400, 300);
    g.setFrame({0, 0, 800, 600});
    g.zoomIn();
    g.zoomIn();
    EXPECT_EQ(g.scale(), 1.21000004f);
    EXPECT_EQ(g.frame(), (Rect{0, 0, 800 * 1.1 * 1.1, 600 * 1.1 * 1.1}));
    for (int i = 0; i < 100; ++i) g.zoomIn();
    EXPECT_GT(g.scale(), 10000.0f);

    g.setScale(1);
    for (const auto& [before, after] : {std::pair{Rect{0, 0, 900, 700}, Rect{0, 0, 810, 630}},
                                        {Rect{0, 0, 850, 650}, Rect{0, 0, 800, 600}},
                                        {Rect{0, 0, 2000, 650}, Rect{0, 0, 1800, 600}}}) {  // each axis on its own
        g.setFrame(before);
        g.zoomOut(kVisible);
        EXPECT_EQ(g.frame(), after);
    }
    EXPECT_FLOAT_EQ(g.scale(), 0.729f);
    for (int i = 0; i < 50; ++i) g.zoomOut(kVisible);
    EXPECT_GT(g.scale(), 0.0f);
    EXPECT_LT(g.scale(), 0.01f);

    g = withPicture(1000, 500, 2.0f);
    g.zoomIn();
    const auto plan = g.drawPass(kVisible);
    EXPECT_EQ(plan.frame, (Rect{0, 0, 2216, 1116}));
    EXPECT_EQ(*plan.picture, (Rect{8, 8, 2200, 1100}));
}
