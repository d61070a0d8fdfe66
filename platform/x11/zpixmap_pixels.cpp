#include "platform/x11/zpixmap_pixels.h"

#include <algorithm>
#include <bit>

namespace pv::x11 {
namespace {

bool isCommonLayout(const ZPixmapFormat& f) {
    return f.bitsPerPixel == 32 && f.lsbFirst && f.redMask == 0xff0000 && f.greenMask == 0x00ff00 &&
           f.blueMask == 0x0000ff;
}

// 32 bits per pixel, bytes B, G, R, X/A in memory: the layout of nearly every server.
void convertCommon(const uint8_t* data, int stride, bool withAlpha, Image& out) {
    for (int y = 0; y < out.height; ++y) {
        const uint8_t* src = data + static_cast<size_t>(y) * stride;
        uint8_t* dst = out.row(y);
        for (int x = 0; x < out.width; ++x, src += 4, dst += 4) {
            const uint8_t a = withAlpha ? src[3] : 255;
            dst[0] = std::min(src[2], a);
            dst[1] = std::min(src[1], a);
            dst[2] = std::min(src[0], a);
            dst[3] = a;
        }
    }
}

uint32_t readPixel(const uint8_t* p, int bytes, bool lsbFirst) {
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i) {
        const uint32_t byte = p[lsbFirst ? i : bytes - 1 - i];
        v |= byte << (8 * i);
    }
    return v;
}

uint8_t channel(uint32_t pixel, uint32_t mask) {
    if (mask == 0) return 0;
    const int shift = std::countr_zero(mask);
    const uint32_t max = mask >> shift;
    return static_cast<uint8_t>(((pixel & mask) >> shift) * 255u / max);
}

void convertByMasks(const uint8_t* data, int stride, const ZPixmapFormat& f, Image& out) {
    const int bytes = f.bitsPerPixel / 8;
    const uint32_t depthMask = f.depth >= 32 ? 0xffffffffu : ((1u << f.depth) - 1);
    const uint32_t alphaMask = f.depth == 32 ? depthMask & ~(f.redMask | f.greenMask | f.blueMask) : 0;
    for (int y = 0; y < out.height; ++y) {
        const uint8_t* src = data + static_cast<size_t>(y) * stride;
        uint8_t* dst = out.row(y);
        for (int x = 0; x < out.width; ++x, src += bytes, dst += 4) {
            const uint32_t pixel = readPixel(src, bytes, f.lsbFirst);
            const uint8_t a = alphaMask ? channel(pixel, alphaMask) : 255;
            dst[0] = std::min(channel(pixel, f.redMask), a);
            dst[1] = std::min(channel(pixel, f.greenMask), a);
            dst[2] = std::min(channel(pixel, f.blueMask), a);
            dst[3] = a;
        }
    }
}

}  // namespace

Image imageFromZPixmap(const uint8_t* data, int width, int height, int stride, const ZPixmapFormat& format) {
    Image out = Image::unfilled(width, height);
    if (width <= 0 || height <= 0) return out;
    if (isCommonLayout(format))
        convertCommon(data, stride, format.depth == 32, out);
    else
        convertByMasks(data, stride, format, out);
    return out;
}

}  // namespace pv::x11
