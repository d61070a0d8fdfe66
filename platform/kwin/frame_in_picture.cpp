#include "platform/kwin/frame_in_picture.h"

#include <algorithm>
#include <cmath>

namespace pv::kwin {

namespace {

// Sizes in points times a scale meet a picture's pixels within a pixel
// (fractional scales round).
bool sameSize(double points, double scale, int pixels) { return std::fabs(points * scale - pixels) <= 1.0; }

}  // namespace

std::optional<CanvasRect> frameInPicture(const Image& picture, double scale, const Rect& frame, const Rect& buffer) {
    const double w = std::round(frame.width * scale), h = std::round(frame.height * scale);
    if (picture.isNull() || w <= 0 || h <= 0) return std::nullopt;
    if (sameSize(frame.width, scale, picture.width) && sameSize(frame.height, scale, picture.height))
        return CanvasRect{0, 0, static_cast<double>(picture.width), static_cast<double>(picture.height)};

    const bool bufferHoldsFrame =
        buffer.x <= frame.x && buffer.y <= frame.y && buffer.maxX() >= frame.maxX() && buffer.maxY() >= frame.maxY();
    CanvasRect found;
    if (bufferHoldsFrame && sameSize(buffer.width, scale, picture.width) &&
        sameSize(buffer.height, scale, picture.height)) {
        found = {std::round((frame.x - buffer.x) * scale), std::round((frame.y - buffer.y) * scale), w, h};
    } else {
        int left = picture.width, top = picture.height;
        for (int y = 0; y < picture.height; ++y) {
            const uint8_t* row = picture.row(y);
            for (int x = 0; x < std::min(left, picture.width); ++x) {
                if (row[x * 4 + 3] != 255) continue;
                left = x;
                top = std::min(top, y);
                break;
            }
        }
        found = {static_cast<double>(left), static_cast<double>(top), w, h};
    }
    if (found.x < 0 || found.y < 0 || found.maxX() > picture.width + 0.5 || found.maxY() > picture.height + 0.5)
        return std::nullopt;
    found.width = std::min(found.width, picture.width - found.x);
    found.height = std::min(found.height, picture.height - found.y);
    return found;
}

Image cutOut(const Image& picture, const CanvasRect& part) {
    const int px = static_cast<int>(std::lround(part.x)), py = static_cast<int>(std::lround(part.y));
    Image out(static_cast<int>(std::lround(part.width)), static_cast<int>(std::lround(part.height)));
    const int x0 = std::max(0, px), x1 = std::min(picture.width, px + out.width);
    for (int y = std::max(0, py); y < std::min(picture.height, py + out.height); ++y) {
        if (x0 >= x1) break;
        std::copy_n(picture.row(y) + 4 * x0, 4 * (x1 - x0), out.row(y - py) + 4 * (x0 - px));
    }
    return out;
}

}  // namespace pv::kwin
