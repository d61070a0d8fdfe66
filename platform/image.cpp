#include "platform/image.h"

#include <algorithm>
#include <vector>

namespace pv {

std::optional<int> pictureSide(double pixels) {
    if (!(pixels >= 0 && pixels < kMaxPictureSide + 1)) return std::nullopt;  // NaN fails too
    return static_cast<int>(pixels);
}

Image Image::unfilled(int w, int h) {
    Image img;
    img.width = w;
    img.height = h;
    img.pixels.resize(static_cast<size_t>(std::max(w, 0)) * std::max(h, 0) * 4);
    return img;
}

Image Image::filled(int w, int h, uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    Image img = unfilled(w, h);
    const auto premul = [a](uint8_t c) { return static_cast<uint8_t>((c * a + 127) / 255); };
    const uint8_t px[4] = {premul(r), premul(g), premul(b), a};
    for (size_t i = 0; i < img.pixels.size(); i += 4) {
        img.pixels[i] = px[0];
        img.pixels[i + 1] = px[1];
        img.pixels[i + 2] = px[2];
        img.pixels[i + 3] = px[3];
    }
    return img;
}

void drawOver(Image& dst, const PixelsView& src, int left, int top, const PixelClip& clip) {
    const int x0 = std::max({0, left, clip.x});
    const int y0 = std::max({0, top, clip.y});
    const int x1 = std::min({dst.width, left + src.width, clip.x + std::min(clip.width, dst.width)});
    const int y1 = std::min({dst.height, top + src.height, clip.y + std::min(clip.height, dst.height)});
    for (int y = y0; y < y1; ++y) {
        const uint8_t* s = src.data + (static_cast<size_t>(y - top) * src.width + (x0 - left)) * 4;
        uint8_t* d = dst.row(y) + static_cast<size_t>(x0) * 4;
        for (int x = x0; x < x1; ++x, s += 4, d += 4) {
            const unsigned a = s[3];
            if (a == 255) {
                std::copy(s, s + 4, d);
                continue;
            }
            for (int c = 0; c < 4; ++c) d[c] = static_cast<uint8_t>(s[c] + (d[c] * (255 - a) + 127) / 255);
        }
    }
}

}  // namespace pv

namespace pv {

namespace {

// One output coordinate's sources along one axis: first index and weights.
struct Taps {
    int first = 0;
    std::vector<float> weights;
};

std::vector<Taps> tapsFor(int srcLength, int dstLength) {
    std::vector<Taps> taps(static_cast<size_t>(dstLength));
    const double ratio = static_cast<double>(srcLength) / dstLength;
    for (int i = 0; i < dstLength; ++i) {
        Taps& t = taps[static_cast<size_t>(i)];
        if (ratio <= 1.0) {
            // Growing: the two nearest source pixels, by distance.
            const double at = std::clamp((i + 0.5) * ratio - 0.5, 0.0, srcLength - 1.0);
            t.first = static_cast<int>(at);
            const float f = static_cast<float>(at - t.first);
            t.weights = {1.0f - f};
            if (t.first + 1 < srcLength) t.weights.push_back(f);
            continue;
        }
        // Shrinking: every source pixel the output pixel covers, by overlap.
        const double from = i * ratio, to = (i + 1) * ratio;
        t.first = static_cast<int>(from);
        for (int s = t.first; s < srcLength && s < to; ++s) {
            const double overlap = std::min<double>(s + 1, to) - std::max<double>(s, from);
            t.weights.push_back(static_cast<float>(overlap / ratio));
        }
    }
    return taps;
}

}  // namespace

Image resampled(const Image& src, int width, int height) {
    if (width <= 0 || height <= 0 || src.isNull()) return Image(std::max(width, 0), std::max(height, 0));
    const auto across = tapsFor(src.width, width);
    const auto down = tapsFor(src.height, height);
    // Rows first into floats, then columns into bytes.
    std::vector<float> rows(static_cast<size_t>(width) * src.height * 4);
    for (int y = 0; y < src.height; ++y) {
        const uint8_t* in = src.row(y);
        float* out = rows.data() + static_cast<size_t>(y) * width * 4;
        for (int x = 0; x < width; ++x) {
            const Taps& t = across[static_cast<size_t>(x)];
            for (size_t k = 0; k < t.weights.size(); ++k) {
                const uint8_t* p = in + (static_cast<size_t>(t.first) + k) * 4;
                for (int c = 0; c < 4; ++c) out[x * 4 + c] += t.weights[k] * p[c];
            }
        }
    }
    Image dst(width, height);
    for (int y = 0; y < height; ++y) {
        const Taps& t = down[static_cast<size_t>(y)];
        uint8_t* out = dst.row(y);
        for (int x = 0; x < width * 4; ++x) {
            float v = 0;
            for (size_t k = 0; k < t.weights.size(); ++k)
                v += t.weights[k] * rows[(static_cast<size_t>(t.first) + k) * width * 4 + x];
            out[x] = static_cast<uint8_t>(std::clamp(v + 0.5f, 0.0f, 255.0f));
        }
    }
    // Rounding can leave a colour a step above its alpha; keep it premultiplied.
    for (size_t i = 0; i < dst.pixels.size(); i += 4)
        for (int c = 0; c < 3; ++c) dst.pixels[i + c] = std::min(dst.pixels[i + c], dst.pixels[i + 3]);
    return dst;
}

}  // namespace pv
