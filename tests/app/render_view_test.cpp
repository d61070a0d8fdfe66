// The preview widget inside its scroll area: sizing, placement, fits, zooms
// and what it paints.
#include <QApplication>
#include <QScrollArea>
#include <QScrollBar>

#include <gtest/gtest.h>

#include "preview/qt/render_view.h"

using namespace pv;

namespace {

ImagePtr picture(int w, int h, uint8_t r, uint8_t g, uint8_t b) {
    return std::make_shared<const Image>(Image::filled(w, h, r, g, b, 255));
}

// A view in a frameless scroll area of 816 by 616: the content size leaves
// 800 by 600 inside the margins.
class RenderViewInArea : public ::testing::Test {
protected:
    void SetUp() override {
        area_.setFrameShape(QFrame::NoFrame);
        area_.setWidgetResizable(false);
        view_ = new RenderView;
        area_.setWidget(view_);
        area_.resize(816, 616);
        area_.show();
        QApplication::processEvents();
    }

    QSize viewport() const { return area_.viewport()->size(); }
    QRgb pixel(int x, int y) const { return view_->grab().toImage().pixel(x, y); }

    QScrollArea area_;
    RenderView* view_ = nullptr;
};

}  // namespace

TEST_F(RenderViewInArea, WithoutAPictureTheEmptyPaneShowsTheCheckerboard) {
    EXPECT_EQ(view_->size(), viewport());
    EXPECT_FALSE(view_->pictureRect());
    EXPECT_EQ(pixel(2, 2), qRgb(255, 255, 255));
    EXPECT_EQ(pixel(10, 2), qRgb(204, 204, 204));
    EXPECT_EQ(pixel(10, 10), qRgb(255, 255, 255));
    // It keeps covering the pane as the pane changes, zooms or not.
    area_.resize(900, 500);
    view_->zoomIn();
    QApplication::processEvents();
    EXPECT_EQ(view_->size(), QSize(900, 500));
}

TEST_F(RenderViewInArea, SmallPictureIsCentredInThePane) {
    view_->setImage(picture(400, 300, 200, 0, 0));
    EXPECT_EQ(view_->size(), viewport());
    ASSERT_TRUE(view_->pictureRect());
    EXPECT_EQ(*view_->pictureRect(), (Rect{208, 8, 400, 300}));
    EXPECT_EQ(view_->renderGeometry().pointerOffsetX(), 208.0f);
    EXPECT_EQ(pixel(208, 8), qRgb(200, 0, 0));
    EXPECT_EQ(pixel(607, 307), qRgb(200, 0, 0));
    EXPECT_EQ(pixel(608, 100), qRgb(255, 255, 255));  // checker square (12, 76): even
    // Resizing the pane resizes the view and centres the picture again.
    area_.resize(1000, 700);
    QApplication::processEvents();
    EXPECT_EQ(view_->size(), viewport());
    EXPECT_EQ(view_->pictureRect()->x, 300);
}

TEST_F(RenderViewInArea, FitAllFitsTheWholePictureAndScrollsNothing) {
    view_->setImage(picture(2880, 1800, 0, 0, 180));
    EXPECT_EQ(view_->size(), QSize(2896, 1816));  // at scale 1 the area scrolls
    view_->fitAll();
    QApplication::processEvents();
    EXPECT_EQ(view_->scale(), static_cast<float>(800.0 / 2880.0));
    EXPECT_EQ(view_->size(), QSize(816, 616));
    const Rect r = *view_->pictureRect();
    EXPECT_NEAR(r.x, 8, 1e-3);
    EXPECT_NEAR(r.width, 800, 1e-3);
    EXPECT_EQ(area_.horizontalScrollBar()->maximum(), 0);
    EXPECT_EQ(area_.verticalScrollBar()->maximum(), 0);
    EXPECT_EQ(pixel(400, 200), qRgb(0, 0, 180));

    // A new picture keeps the scale; a tall picture fits by its height.
    view_->setImage(picture(1000, 2000, 0, 90, 0));
    EXPECT_EQ(view_->scale(), static_cast<float>(800.0 / 2880.0));
    view_->fitAll();
    EXPECT_EQ(view_->scale(), 0.3f);
    EXPECT_EQ(view_->size(), viewport());
    view_->setImage(nullptr);
    EXPECT_FALSE(view_->pictureRect());
}

TEST_F(RenderViewInArea, FitWidthLeavesTheHeightToScroll) {
    view_->setImage(picture(1600, 2400, 0, 0, 0));
    view_->fitWidth();
    QApplication::processEvents();
    // The vertical scroll bar's room is left out of the width.
    const int bar = area_.verticalScrollBar()->sizeHint().width();
    EXPECT_EQ(view_->scale(), static_cast<float>((800.0 - bar) / 1600.0));
    EXPECT_GT(area_.verticalScrollBar()->maximum(), 0);
    EXPECT_EQ(area_.horizontalScrollBar()->maximum(), 0);
    EXPECT_EQ(view_->size().width(), viewport().width());

    // A wide picture that fits the width and the height scrolls nowhere.
    view_->setImage(picture(3200, 400, 0, 0, 0));
    view_->fitWidth();
    QApplication::processEvents();
    EXPECT_EQ(view_->scale(), 0.25f);
    EXPECT_EQ(area_.verticalScrollBar()->maximum(), 0);
    EXPECT_EQ(area_.horizontalScrollBar()->maximum(), 0);
}

TEST_F(RenderViewInArea, ZoomsGrowAndShrinkTheScrollableView) {
    view_->setImage(picture(800, 300, 10, 20, 30));
    view_->zoomIn();
    EXPECT_EQ(view_->scale(), 1.10000002f);
    EXPECT_EQ(view_->size().width(), 896);  // 880 + margins: wider than the pane
    QApplication::processEvents();
    EXPECT_GT(area_.horizontalScrollBar()->maximum(), 0);
    view_->zoomIn();
    EXPECT_EQ(view_->scale(), 1.21000004f);

    view_->zoomOut();
    view_->zoomOut();
    view_->zoomOut();
    QApplication::processEvents();
    EXPECT_LT(view_->scale(), 1.0f);
    // Narrower than the pane again: the view covers the pane, picture centred.
    EXPECT_EQ(view_->size(), viewport());
    const Rect r = *view_->pictureRect();
    EXPECT_NEAR(r.x + r.width / 2, viewport().width() / 2.0, 0.5);
}

