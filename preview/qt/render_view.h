#pragma once
// The preview pane: the current composite picture at an adjustable scale, on
// a white background with a light grey checkerboard and a margin around it.
// It lives in a QScrollArea (not resizable by the area) and sizes itself to
// the scaled picture so that the area can scroll it.

#include <QImage>
#include <QPointer>
#include <QWidget>

#include "platform/image.h"
#include "preview/render_geometry.h"

class QAbstractScrollArea;

namespace pv {

class RenderView : public QWidget {
    Q_OBJECT

public:
    explicit RenderView(QWidget* parent = nullptr);

    const ImagePtr& image() const { return image_; }
    float scale() const { return geometry_.scale(); }
    const RenderGeometry& renderGeometry() const { return geometry_; }
    // Where the picture was last planned inside the view; none without one.
    std::optional<Rect> pictureRect() const { return pictureRect_; }

public slots:
    void setImage(pv::ImagePtr image);
    void fitWidth();
    void fitAll();
    void zoomIn();
    void zoomOut();

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The pane that holds the view (the scroll area's viewport) at the origin,
    // or the view itself when it has no parent.
    Rect visibleArea() const;
    // The pane's size without scroll bars or border.
    Size contentSize() const;
    QAbstractScrollArea* scrollArea() const;
    // A drawing pass's sizing applied to the widget.
    void relayout();
    void watchParent();
    // The picture at the planned size, smoothly scaled down once and kept;
    // null when it is drawn at or above its own size.
    const QImage& downscaled(QSize size);

    ImagePtr image_;
    QImage wrapped_;  // shares image_'s pixels
    QImage scaledCache_;
    RenderGeometry geometry_;
    std::optional<Rect> pictureRect_;
    QPointer<QWidget> watchedParent_;
};

}  // namespace pv
