// PackBits round trip: any bytes, sampled every 1 to 4 bytes, encoded by our
// encoder and decoded by an independent decoder, give the samples back, within
// the encoder's stated bound.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "document/byte_buffer.h"
#include "tests/support/packbits_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const int32_t skip = data[0] % 4 + 1;
    const uint8_t* source = data + 1;
    const size_t length = size - 1;

    const std::vector<uint8_t> encoded = pv::packedBitsForRange(source, length, 0, length, skip);
    const uint64_t count = pv::sampleCount(length, skip);
    if (encoded.size() > pv::packBitsBound(count)) std::abort();

    std::vector<uint8_t> samples;
    for (size_t i = 0; i < length; i += static_cast<size_t>(skip)) samples.push_back(source[i]);
    if (pvtest::unpackBits(encoded) != samples) std::abort();
    return 0;
}
