#pragma once
// Turning the bytes of an X ZPixmap image into our RGBA picture.

#include <cstdint>

#include "platform/image.h"

namespace pv::x11 {

struct ZPixmapFormat {
    int depth = 24;
    int bitsPerPixel = 32;
    bool lsbFirst = true;  // image byte order of the server
    uint32_t redMask = 0xff0000;
    uint32_t greenMask = 0x00ff00;
    uint32_t blueMask = 0x0000ff;
};

// data holds height rows of stride bytes. Depth 32 keeps the remaining 8 bits
// as alpha (X's ARGB windows are premultiplied already; colour is clamped to
// alpha); every other depth gives opaque pixels.
Image imageFromZPixmap(const uint8_t* data, int width, int height, int stride, const ZPixmapFormat& format);

}  // namespace pv::x11
