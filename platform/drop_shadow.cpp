#include "platform/drop_shadow.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace pv {

namespace {

constexpr double kSidePoints = 24;
constexpr double kTopPoints = 16;
constexpr double kBottomPoints = 32;
constexpr double kOpacity = 0.45;

// One pass of a running-sum box blur along rows (or columns, with the strides
// swapped); three passes come close to a Gaussian.
void boxBlur(std::vector<float>& v, int length, int count, size_t step, size_t lineStride, int radius) {
    if (radius <= 0) return;
    std::vector<float> line(static_cast<size_t>(length));
    const float norm = 1.0f / static_cast<float>(2 * radius + 1);
    for (int n = 0; n < count; ++n) {
        float* base = v.data() + static_cast<size_t>(n) * lineStride;
        for (int i = 0; i < length; ++i) line[static_cast<size_t>(i)] = base[static_cast<size_t>(i) * step];
        float sum = 0;
        for (int i = -radius; i <= radius; ++i) {
            if (i >= 0 && i < length) sum += line[static_cast<size_t>(i)];
        }
        for (int i = 0; i < length; ++i) {
            base[static_cast<size_t>(i) * step] = sum * norm;
            const int out = i - radius;
            const int in = i + radius + 1;
            if (out >= 0) sum -= line[static_cast<size_t>(out)];
            if (in < length) sum += line[static_cast<size_t>(in)];
        }
    }
}

}  // namespace

ShadowMargins dropShadowMargins(double scale) {
    const auto px = [scale](double points) { return static_cast<int>(std::lround(points * scale)); };
    return {px(kSidePoints), px(kTopPoints), px(kSidePoints), px(kBottomPoints)};
}

Image addDropShadow(const Image& window, double scale) {
    if (window.isNull()) return window;
    const ShadowMargins m = dropShadowMargins(scale);
    const int w = window.width + m.left + m.right;
    const int h = window.height + m.top + m.bottom;

    // The window's silhouette, moved down so that the shadow falls below it.
    const int drop = static_cast<int>(std::lround(8 * scale));
    std::vector<float> alpha(static_cast<size_t>(w) * h, 0.0f);
    for (int y = 0; y < window.height; ++y) {
        const int ty = y + m.top + drop;
        if (ty >= h) break;
        const uint8_t* src = window.row(y);
        float* dst = alpha.data() + static_cast<size_t>(ty) * w + m.left;
        for (int x = 0; x < window.width; ++x) dst[x] = src[x * 4 + 3] / 255.0f;
    }
    const int radius = std::max(1, static_cast<int>(std::lround(6 * scale)));
    for (int pass = 0; pass < 3; ++pass) {
        boxBlur(alpha, w, h, 1, static_cast<size_t>(w), radius);
        boxBlur(alpha, h, w, static_cast<size_t>(w), 1, radius);
    }

    // Shadow first, then the window over it (source-over, premultiplied).
    Image out(w, h);
    for (size_t i = 0; i < alpha.size(); ++i) {
        out.pixels[i * 4 + 3] = static_cast<uint8_t>(std::lround(std::clamp(alpha[i], 0.0f, 1.0f) * kOpacity * 255));
    }
    for (int y = 0; y < window.height; ++y) {
        const uint8_t* src = window.row(y);
        uint8_t* dst = out.row(y + m.top) + static_cast<size_t>(m.left) * 4;
        for (int x = 0; x < window.width * 4; x += 4) {
            const unsigned a = src[x + 3];
            for (int c = 0; c < 4; ++c) {
                dst[x + c] = static_cast<uint8_t>(src[x + c] + (dst[x + c] * (255 - a) + 127) / 255);
            }
        }
    }
    return out;
}

}  // namespace pv
