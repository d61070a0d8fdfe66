#include "document/qt/bitmap.h"

#include <QPainter>

#include <cstring>

namespace pv {

QImage wrapImage(const Image& image) {
    return QImage(image.pixels.data(), image.width, image.height, image.width * 4,
                  QImage::Format_RGBA8888_Premultiplied);
}

QImage wrapImageForDrawing(Image& image) {
    return QImage(image.pixels.data(), image.width, image.height, image.width * 4,
                  QImage::Format_RGBA8888_Premultiplied);
}

Image imageFromQImage(const QImage& source) {
    const QImage converted = source.convertToFormat(QImage::Format_RGBA8888_Premultiplied);
    Image image(converted.width(), converted.height());
    for (int y = 0; y < image.height; ++y) {
        std::memcpy(image.row(y), converted.constScanLine(y), static_cast<size_t>(image.width) * 4);
    }
    return image;
}

void drawBehind(QImage& canvas, const Image& picture, const CanvasRect& dest) {
    QPainter painter(&canvas);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationOver);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRectF(dest.x, dest.y, dest.width, dest.height), wrapImage(picture));
}

}  // namespace pv
