#include "document/unpremultiply.h"

#include <algorithm>
#include <array>

namespace pv {

namespace {

uint8_t floatRule(uint8_t c, uint8_t a) {
    if (a == 0) return 0;
    const float f = static_cast<float>(a) / 255.0f;
    const float q = static_cast<float>(c) / f;
    double d = static_cast<double>(q);
    d = std::min(d, 255.0);
    d = std::max(d, 0.0);
    return static_cast<uint8_t>(d);
}

// Every (alpha, colour) pair computed once by the float rule: row a holds
// the 256 results under alpha a.
using Table = std::array<uint8_t, 256 * 256>;

const Table& table() {
    static const Table t = [] {
        Table built{};
        for (int a = 0; a < 256; ++a)
            for (int c = 0; c < 256; ++c)
                built[static_cast<size_t>(a) * 256 + c] = floatRule(static_cast<uint8_t>(c), static_cast<uint8_t>(a));
        return built;
    }();
    return t;
}

}  // namespace

uint8_t unpremultipliedComponent(uint8_t c, uint8_t a) { return table()[static_cast<size_t>(a) * 256 + c]; }

void unpremultiply(uint8_t* rgba, size_t byteCount) {
    const uint8_t* t = table().data();
    uint8_t* p = rgba;
    uint8_t* const end = rgba + (byteCount / 4) * 4;
    for (; p != end; p += 4) {
        const uint8_t a = p[3];
        if (a == 255) continue;
        const uint8_t* row = t + static_cast<size_t>(a) * 256;
        p[0] = row[p[0]];
        p[1] = row[p[1]];
        p[2] = row[p[2]];
    }
}

void unpremultiplyInto(uint8_t* out, const uint8_t* in, size_t byteCount) {
    const uint8_t* t = table().data();
    const uint8_t* const end = in + (byteCount / 4) * 4;
    for (; in != end; in += 4, out += 4) {
        const uint8_t a = in[3];
        const uint8_t* row = t + static_cast<size_t>(a) * 256;
        out[0] = a == 255 ? in[0] : row[in[0]];
        out[1] = a == 255 ? in[1] : row[in[1]];
        out[2] = a == 255 ? in[2] : row[in[2]];
        out[3] = a;
    }
}

void matteOverWhite(uint8_t* rgba, size_t byteCount) {
    uint8_t* const end = rgba + (byteCount / 4) * 4;
    for (uint8_t* p = rgba; p != end; p += 4) {
        const int white = 255 - p[3];
        if (white == 0) continue;
        for (int k = 0; k < 3; ++k) p[k] = static_cast<uint8_t>(std::min(255, p[k] + white));
    }
}

void matteOverWhiteInto(uint8_t* out, const uint8_t* in, size_t byteCount) {
    const uint8_t* const end = in + (byteCount / 4) * 4;
    for (; in != end; in += 4, out += 4) {
        const int white = 255 - in[3];
        for (int k = 0; k < 3; ++k) out[k] = static_cast<uint8_t>(std::min(255, in[k] + white));
        out[3] = in[3];
    }
}

}  // namespace pv
