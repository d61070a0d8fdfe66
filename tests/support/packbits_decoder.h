#pragma once
// A PackBits decoder written from the format's description, not from our
// encoder, for the tests and the fuzz targets that check what we encode.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace pvtest {

// Standard PackBits: header h as a signed byte; 0..127 copy h + 1 bytes,
// -1..-127 repeat the next byte 1 - h times, -128 is skipped. Throws
// std::runtime_error when a packet runs past the end.
inline std::vector<uint8_t> unpackBits(const uint8_t* data, size_t size) {
    std::vector<uint8_t> out;
    size_t i = 0;
    while (i < size) {
        const auto h = static_cast<int8_t>(data[i++]);
        if (h >= 0) {
            const size_t n = static_cast<size_t>(h) + 1;
            if (i + n > size) throw std::runtime_error("literal packet runs past the end");
            out.insert(out.end(), data + i, data + i + n);
            i += n;
        } else if (h != -128) {
            if (i >= size) throw std::runtime_error("run packet without its byte");
            out.insert(out.end(), static_cast<size_t>(1 - h), data[i++]);
        }
    }
    return out;
}

inline std::vector<uint8_t> unpackBits(const std::vector<uint8_t>& v) { return unpackBits(v.data(), v.size()); }

}  // namespace pvtest
