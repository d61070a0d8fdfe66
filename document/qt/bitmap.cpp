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

std::optional<Image> bitmapFromImage(const Image& image, double width, double height) {
    if (image.width <= 0 || image.height <= 0) return std::nullopt;
    const int w = static_cast<int>(width);
    const int h = static_cast<int>(height);
    if (w <= 0 || h <= 0) return Image(std::max(w, 0), std::max(h, 0));
    Image bitmap(w, h);
    if (w == image.width && h == image.height) {
        bitmap.pixels = image.pixels;
        return bitmap;
    }
    QImage target = wrapImageForDrawing(bitmap);
    QPainter painter(&target);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRectF(0, 0, w, h), wrapImage(image));
    painter.end();
    return bitmap;
}

void drawBehind(QImage& canvas, const Image& picture, const Rect& dest) {
    QPainter painter(&canvas);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationOver);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRectF(dest.x, dest.y, dest.width, dest.height), wrapImage(picture));
}

}  // namespace pv
