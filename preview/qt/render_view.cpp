#include "preview/qt/render_view.h"

#include <QAbstractScrollArea>
#include <QEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QScrollBar>

#include <algorithm>
#include <cmath>

#include "document/qt/bitmap.h"

namespace pv {

namespace {

const QColor kCheckerColour = QColor::fromRgbF(0.8f, 0.8f, 0.8f, 1.0f);

// Widget sizes are whole pixels up to Qt's largest widget size. Rounded to
// the nearest: a fitted frame can exceed the pane by a float's rounding,
// which must not make the pane scroll by a pixel.
int toPixels(double v) {
    if (!(v > 0)) return 0;
    return static_cast<int>(std::min(std::round(v), static_cast<double>(QWIDGETSIZE_MAX)));
}

QRectF toQt(const Rect& r) { return {r.x, r.y, r.width, r.height}; }

}  // namespace

RenderView::RenderView(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    watchParent();
}

QAbstractScrollArea* RenderView::scrollArea() const {
    QWidget* pane = parentWidget();
    if (!pane) return nullptr;
    auto* area = qobject_cast<QAbstractScrollArea*>(pane->parentWidget());
    return area && area->viewport() == pane ? area : nullptr;
}

Rect RenderView::visibleArea() const {
    const QWidget* pane = parentWidget() ? parentWidget() : this;
    return {0, 0, static_cast<double>(pane->width()), static_cast<double>(pane->height())};
}

Size RenderView::contentSize() const {
    if (auto* area = scrollArea()) {
        const QSize s = area->maximumViewportSize();
        return {static_cast<double>(s.width()), static_cast<double>(s.height())};
    }
    const Rect v = visibleArea();
    return {v.width, v.height};
}

void RenderView::setImage(ImagePtr image) {
    image_ = std::move(image);
    wrapped_ = image_ && !image_->isNull() ? wrapImage(*image_) : QImage();
    scaledCache_ = QImage();
    geometry_.setImageSize(
        wrapped_.isNull() ? Size{} : Size{static_cast<double>(image_->width), static_cast<double>(image_->height)});
    relayout();
}

void RenderView::fitWidth() {
    Size content = contentSize();
    // A picture fitted to the width usually scrolls vertically, and the
    // vertical scroll bar then takes room from the width: leave that room, so
    // that the fitted width needs no horizontal scrolling.
    if (auto* area = scrollArea();
        area && geometry_.hasImage() && area->verticalScrollBarPolicy() != Qt::ScrollBarAlwaysOff) {
        RenderGeometry probe = geometry_;
        probe.fitWidth(content);
        const double height = probe.scale() * geometry_.imageSize().height + 2 * RenderGeometry::kMargin;
        if (height > content.height) content.width -= area->verticalScrollBar()->sizeHint().width();
    }
    geometry_.fitWidth(content);
    relayout();
}

void RenderView::fitAll() {
    geometry_.fitAll(contentSize());
    relayout();
}

void RenderView::zoomIn() {
    geometry_.zoomIn();
    relayout();
}

void RenderView::zoomOut() {
    geometry_.zoomOut(visibleArea());
    relayout();
}

void RenderView::relayout() {
    // Without a picture there is nothing to scroll: the view covers its pane,
    // so the whole empty pane shows the checkerboard.
    if (!geometry_.hasImage()) geometry_.setFrame(visibleArea());
    const auto plan = geometry_.drawPass(visibleArea());
    pictureRect_ = plan.picture;
    const QSize size(toPixels(plan.frame.width), toPixels(plan.frame.height));
    if (size != this->size()) resize(size);
    update();
}

void RenderView::paintEvent(QPaintEvent* event) {
    const auto plan = geometry_.drawPass(visibleArea());
    pictureRect_ = plan.picture;
    if (QSize(toPixels(plan.frame.width), toPixels(plan.frame.height)) != size()) {
        // Resizing inside a paint is not allowed; size on the next turn.
        QMetaObject::invokeMethod(this, &RenderView::relayout, Qt::QueuedConnection);
    }

    QPainter painter(this);
    const QRect exposed = event->rect();
    painter.fillRect(exposed, Qt::white);

    // Only the squares that meet the exposed area; the board itself starts at
    // the view's top-left corner.
    const auto& board = plan.checkerboard;
    const double side = RenderGeometry::kCheckerSquare;
    const int firstRow = std::max(0, static_cast<int>(exposed.top() / side));
    const int lastRow = std::min(board.rows - 1, static_cast<int>(exposed.bottom() / side));
    const int firstColumn = std::max(0, static_cast<int>(exposed.left() / side));
    const int lastColumn = std::min(board.columns - 1, static_cast<int>(exposed.right() / side));
    for (int i = firstRow; i <= lastRow; ++i) {
        for (int j = firstColumn; j <= lastColumn; ++j) {
            if (RenderGeometry::Checkerboard::isGrey(i, j)) {
                painter.fillRect(toQt(RenderGeometry::Checkerboard::square(i, j)), kCheckerColour);
            }
        }
    }

    if (plan.picture && !wrapped_.isNull()) {
        const QRectF target = toQt(*plan.picture);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        const QImage& small = downscaled(target.size().toSize());
        painter.drawImage(target, small.isNull() ? wrapped_ : small);
    }
}

const QImage& RenderView::downscaled(QSize size) {
    if (size.isEmpty() || size.width() >= wrapped_.width() || size.height() >= wrapped_.height()) {
        scaledCache_ = QImage();
        return scaledCache_;
    }
    if (scaledCache_.size() != size) {
        scaledCache_ = wrapped_.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    return scaledCache_;
}

bool RenderView::event(QEvent* event) {
    if (event->type() == QEvent::ParentChange) watchParent();
    return QWidget::event(event);
}

void RenderView::watchParent() {
    if (watchedParent_ == parentWidget()) return;
    if (watchedParent_) watchedParent_->removeEventFilter(this);
    watchedParent_ = parentWidget();
    if (watchedParent_) {
        watchedParent_->installEventFilter(this);
        relayout();
    }
}

bool RenderView::eventFilter(QObject* watched, QEvent* event) {
    // The visible area changed: the next drawing pass sizes the view anew.
    if (watched == watchedParent_ && event->type() == QEvent::Resize) relayout();
    return QWidget::eventFilter(watched, event);
}

}  // namespace pv
