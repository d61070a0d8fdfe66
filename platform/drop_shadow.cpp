#include "platform/drop_shadow.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace pv {

namespace {

constexpr double kSidePoints = 24;
constexpr double kTopPoints = 16;
constexpr double kBottomPoints = 32;
constexpr float kPeak = 0.45f * 255;  // alpha where the shadow is darkest

// One pass of a running-sum box blur along each row of src into dst, zero
// beyond the edges.
void blurRows(const std::vector<float>& src, std::vector<float>& dst, int width, int height, int radius) {
    const float norm = 1.0f / static_cast<float>(2 * radius + 1);
    for (int y = 0; y < height; ++y) {
        const float* in = src.data() + static_cast<size_t>(y) * width;
        float* out = dst.data() + static_cast<size_t>(y) * width;
        float sum = 0;
        for (int x = 0; x <= radius && x < width; ++x) sum += in[x];
        for (int x = 0; x < width; ++x) {
            out[x] = sum * norm;
            if (x - radius >= 0) sum -= in[x - radius];
            if (x + radius + 1 < width) sum += in[x + radius + 1];
        }
    }
}

// The same along each column, a whole row at a time so that memory is read in
// order: sums holds the running total of every column at once.
void blurColumns(const std::vector<float>& src, std::vector<float>& dst, int width, int height, int radius) {
    const auto w = static_cast<size_t>(width);
    std::vector<float> sums(w, 0.0f);
    const float norm = 1.0f / static_cast<float>(2 * radius + 1);
    const auto add = [&](int y) {
        const float* row = src.data() + static_cast<size_t>(y) * w;
        for (size_t x = 0; x < w; ++x) sums[x] += row[x];
    };
    const auto subtract = [&](int y) {
        const float* row = src.data() + static_cast<size_t>(y) * w;
        for (size_t x = 0; x < w; ++x) sums[x] -= row[x];
    };
    for (int y = 0; y <= radius && y < height; ++y) add(y);
    for (int y = 0; y < height; ++y) {
        float* out = dst.data() + static_cast<size_t>(y) * w;
        for (size_t x = 0; x < w; ++x) out[x] = sums[x] * norm;
        if (y - radius >= 0) subtract(y - radius);
        if (y + radius + 1 < height) add(y + radius + 1);
    }
}

}  // namespace

ShadowMargins dropShadowMargins(double scale) {
    const auto px = [scale](double points) { return static_cast<int>(std::lround(points * scale)); };
    return {px(kSidePoints), px(kTopPoints), px(kSidePoints), px(kBottomPoints)};
}

Image addDropShadow(const Image& window, double scale) {
    if (window.isNull() || !(scale > 0)) return window;
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
    // Three box passes each way come close to a Gaussian; the two buffers
    // take turns as source and destination.
    std::vector<float> spare(alpha.size());
    for (int pass = 0; pass < 3; ++pass) {
        blurRows(alpha, spare, w, h, radius);
        alpha.swap(spare);
    }
    for (int pass = 0; pass < 3; ++pass) {
        blurColumns(alpha, spare, w, h, radius);
        alpha.swap(spare);
    }

    // Shadow first, then the window over it (source-over, premultiplied).
    Image out(w, h);
    for (size_t i = 0; i < alpha.size(); ++i) {
        out.pixels[i * 4 + 3] = static_cast<uint8_t>(std::clamp(alpha[i], 0.0f, 1.0f) * kPeak + 0.5f);
    }
    drawOver(out, window, m.left, m.top);
    return out;
}

}  // namespace pv
