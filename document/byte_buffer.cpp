#include "document/byte_buffer.h"

#include <algorithm>
#include <cstring>

namespace pv {

void appendValue(std::vector<uint8_t>& buffer, int64_t value, int32_t length) {
    if (length <= 0) return;
    const int32_t n = std::min<int32_t>(length, 8);
    uint8_t bytes[8];
    auto v = static_cast<uint64_t>(value);
    for (int32_t i = n - 1; i >= 0; --i) {
        bytes[i] = static_cast<uint8_t>(v & 0xFF);
        v >>= 8;
    }
    buffer.insert(buffer.end(), bytes, bytes + n);
}

size_t packBitsInto(uint8_t* out, const uint8_t* source, uint64_t count, int32_t skip) {
    // Pending literal bytes: up to 128 for a packet plus the two that may open
    // a run on the next sample.
    uint8_t pending[130];
    int n = 0;
    uint8_t* o = out;
    const uint8_t* s = source;
    const ptrdiff_t step = skip;
    uint64_t left = count;

    auto emitLiteral = [&o](const uint8_t* bytes, int length) {
        *o++ = static_cast<uint8_t>(length - 1);
        std::memcpy(o, bytes, static_cast<size_t>(length));
        o += length;
    };

    while (left > 0) {
        const uint8_t b = *s;
        s += step;
        --left;
        pending[n++] = b;
        if (n >= 3 && pending[n - 2] == b && pending[n - 3] == b) {
            if (n >= 4) emitLiteral(pending, n - 3);
            int run = 3;
            bool differs = false;
            uint8_t next = 0;
            while (left > 0 && run < 127) {
                next = *s;
                s += step;
                --left;
                if (next != b) {
                    differs = true;
                    break;
                }
                ++run;
            }
            *o++ = static_cast<uint8_t>(257 - run);
            *o++ = b;
            n = 0;
            if (differs) pending[n++] = next;
        } else if (n == 130) {
            emitLiteral(pending, 128);
            pending[0] = pending[128];
            pending[1] = pending[129];
            n = 2;
        }
    }
    if (n == 129) {
        emitLiteral(pending, 128);
        emitLiteral(pending + 128, 1);
    } else if (n > 0) {
        emitLiteral(pending, n);
    }
    return static_cast<size_t>(o - out);
}

size_t appendPackedBits(std::vector<uint8_t>& out, const uint8_t* source, size_t sourceLength, uint64_t location,
                        uint64_t length, int32_t skip) {
    if (skip < 1 || length == 0 || location >= sourceLength) return 0;
    length = std::min<uint64_t>(length, sourceLength - location);
    const uint64_t count = sampleCount(length, skip);
    const size_t start = out.size();
    out.resize(start + packBitsBound(count));
    const size_t written = packBitsInto(out.data() + start, source + location, count, skip);
    out.resize(start + written);
    return written;
}

std::vector<uint8_t> packedBitsForRange(const uint8_t* source, size_t sourceLength, uint64_t location, uint64_t length,
                                        int32_t skip) {
    std::vector<uint8_t> out;
    appendPackedBits(out, source, sourceLength, location, length, skip);
    return out;
}

}  // namespace pv
