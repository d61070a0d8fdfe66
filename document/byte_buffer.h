#pragma once
// Two byte-level operations of the PSD output: big-endian integers of a fixed
// width, and PackBits run-length encoding of one channel sampled out of
// interleaved pixel bytes.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pv {

// Appends `length` bytes (0 to 8; larger lengths are treated as 8): the value
// modulo 256^length, most significant byte first. A negative value appears in
// two's complement. Length 0 or less appends nothing.
void appendValue(std::vector<uint8_t>& buffer, int64_t value, int32_t length);

// Largest PackBits encoding of `samples` bytes: one header byte per started
// 128 samples on top of the samples themselves.
constexpr size_t packBitsBound(uint64_t samples) { return samples + (samples + 127) / 128; }

// Number of samples taken from a range: `length` divided by `skip`, rounded up.
constexpr uint64_t sampleCount(uint64_t length, int32_t skip) {
    return skip < 1 ? 0 : (length + static_cast<uint64_t>(skip) - 1) / static_cast<uint64_t>(skip);
}

// PackBits-encodes `count` samples read at source[0], source[skip], ... into
// `out`, which must hold packBitsBound(count) bytes. Returns the bytes written.
// Runs of 3 to 127 equal bytes become run packets; everything else goes into
// literal packets of at most 128 bytes.
size_t packBitsInto(uint8_t* out, const uint8_t* source, uint64_t count, int32_t skip);

// The PackBits encoding of the bytes at location, location + skip, ... below
// location + length. The range must lie inside the source; an empty range, a
// range starting past the end or a skip below 1 gives an empty result, and a
// range running past the end is cut at the end.
std::vector<uint8_t> packedBitsForRange(const uint8_t* source, size_t sourceLength, uint64_t location, uint64_t length,
                                        int32_t skip);

// The same encoding appended to `out`; returns the number of bytes appended.
size_t appendPackedBits(std::vector<uint8_t>& out, const uint8_t* source, size_t sourceLength, uint64_t location,
                        uint64_t length, int32_t skip);

}  // namespace pv
