#include "preview/render_geometry.h"

#include <algorithm>

namespace pv {

namespace {

double toFloat(double v) { return static_cast<double>(static_cast<float>(v)); }

// A count of squares, checked before it becomes an integer: a frame zoomed
// far beyond any screen still gives a count that fits (only the exposed
// squares are drawn).
int squareCount(double v) {
    if (!(v >= 1)) return 0;
    return static_cast<int>(std::min(v, 1e9));
}

}  // namespace

RenderGeometry::Checkerboard RenderGeometry::checkerboardFor(Size frameSize) {
    Checkerboard board;
    board.rows = squareCount(frameSize.height * 0.125 + 1.0);
    board.columns = squareCount(frameSize.width * 0.125 + 1.0);
    if (board.rows <= 0 || board.columns <= 0) board = {};
    return board;
}

RenderGeometry::DrawPlan RenderGeometry::drawPass(const Rect& visible) {
    DrawPlan plan;
    const double s = scale_;
    if (hasImage()) {
        // The axis is picked by the picture's own shape; only that axis is
        // compared with the visible area.
        const double ws = toFloat(s * imageSize_.width + 2 * kMargin);
        const double hs = toFloat(s * imageSize_.height + 2 * kMargin);
        if (ws > hs) {
            frame_ = visible.width > ws ? visible : Rect{0, 0, ws, std::max(visible.height, hs)};
        } else {
            frame_ = visible.height > hs ? visible : Rect{0, 0, std::max(visible.width, ws), hs};
        }
    }
    plan.frame = frame_;
    plan.checkerboard = checkerboardFor({frame_.width, frame_.height});
    if (hasImage()) {
        const double w = toFloat(s * imageSize_.width);
        const double h = toFloat(s * imageSize_.height);
        double x = 0;
        if (visible.width > w) x = frame_.width * 0.5 - 0.5 * w;
        if (!(x > kMargin)) x = kMargin;
        plan.picture = Rect{x, kMargin, w, h};
        pointerOffsetX_ = static_cast<float>(x);
        pointerOffsetY_ = static_cast<float>(kMargin);
    }
    return plan;
}

void RenderGeometry::applyFitScale(double available, double pictureLength) {
    // A pane no larger than the margins leaves nothing to fit into; the scale
    // then stays as it was rather than turning zero or negative.
    if (!(available > 0)) return;
    if (!(pictureLength > 0)) {
        scale_ = 1.0f;
        return;
    }
    scale_ = static_cast<float>(std::min(1.0, available / pictureLength));
}

void RenderGeometry::fitWidth(Size content) {
    const double w = content.width - 2 * kMargin;
    applyFitScale(w, imageSize_.width);
    // Only the width leaves room for the margins here.
    frame_ = {0, 0, w, content.height};
}

void RenderGeometry::fitAll(Size content) {
    const double cw = content.width - 2 * kMargin;
    const double ch = content.height - 2 * kMargin;
    const bool taller = hasImage() && static_cast<float>(imageSize_.height / imageSize_.width) > 1.0f;
    if (taller) {
        applyFitScale(ch, imageSize_.height);
    } else {
        applyFitScale(cw, imageSize_.width);
    }
    frame_ = {0, 0, cw, ch};
}

void RenderGeometry::zoomIn() {
    scale_ = static_cast<float>(static_cast<double>(scale_) * kZoomInStep);
    frame_ = {0, 0, frame_.width * kZoomInStep, frame_.height * kZoomInStep};
}

void RenderGeometry::zoomOut(const Rect& visible) {
    scale_ = static_cast<float>(static_cast<double>(scale_) * kZoomOutStep);
    const double shrunkW = frame_.width * kZoomOutStep;
    const double shrunkH = frame_.height * kZoomOutStep;
    const double w = toFloat(visible.width > shrunkW ? visible.width : shrunkW);
    const double h = toFloat(visible.height > shrunkH ? visible.height : shrunkH);
    frame_ = {0, 0, w, h};
}

}  // namespace pv
