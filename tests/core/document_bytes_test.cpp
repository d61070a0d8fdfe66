// PackBits encoding of sampled channel bytes.
#include <gtest/gtest.h>

#include <random>

#include "document/byte_buffer.h"
#include "document_test_support.h"

using namespace pv;
using Bytes = std::vector<uint8_t>;

namespace {

// n bytes in which no two neighbours are equal.
Bytes alternating(size_t n) {
    Bytes v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(i % 7);
    return v;
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

}  // namespace

TEST(PackBits, EncodesTheReferenceTable) {
    const Bytes b128 = alternating(128), b129 = alternating(129), mixed = concat({alternating(129), Bytes(200, 0)});
    struct Case {
        Bytes in, out;
    };
    const Case cases[] = {
        {{0x09}, {0x00, 0x09}},
        {{5, 5}, {0x01, 5, 5}},
        {Bytes(3, 5), {0xFE, 5}},
        {Bytes(127, 5), {0x82, 5}},
        {Bytes(128, 5), {0x82, 5, 0x00, 5}},
        {Bytes(129, 5), {0x82, 5, 0x01, 5, 5}},
        {Bytes(130, 5), {0x82, 5, 0xFE, 5}},
        {Bytes(10, 0xFF), {0xF7, 0xFF}},
        {{1, 2, 3, 3, 3, 3, 3}, {0x01, 1, 2, 0xFC, 3}},
        {{3, 3, 3, 3, 1, 2}, {0xFD, 3, 0x01, 1, 2}},
        {b128, concat({{0x7F}, b128})},
        {b129, concat({{0x7F}, Bytes(b129.begin(), b129.begin() + 128), {0x00, b129[128]}})},
        // A full literal, the one byte left before the run, then runs of 127 and 73.
        {mixed, concat({{0x7F}, Bytes(mixed.begin(), mixed.begin() + 128), {0x00, mixed[128]}, {0x82, 0}, {0xB8, 0}})},
        {{}, {}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(packedBitsForRange(c.in.data(), c.in.size(), 0, c.in.size(), 1), c.out) << c.in.size() << " bytes";
}

TEST(PackBits, RoundTripsRandomRowsThroughAnIndependentDecoder) {
    std::mt19937 rng(20261116);
    auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    for (int round = 0; round < 3000; ++round) {
        // Rows mixing noise, short and long runs (beyond 127 and 130) of any value.
        const int skip = pick(1, 8);
        const int pixels = pick(1, 700);
        Bytes source;
        while (source.size() < static_cast<size_t>(pixels * skip + skip)) {
            const int kind = pick(0, 3);
            const int len = kind == 0 ? pick(1, 300) : kind == 1 ? pick(1, 4) : pick(1, 400);
            const auto value = static_cast<uint8_t>(pick(0, 255));
            for (int i = 0; i < len; ++i) source.push_back(kind == 0 ? static_cast<uint8_t>(pick(0, 255)) : value);
        }
        // A channel of an interleaved buffer: start at `channel`, take every skip-th byte.
        const int channel = pick(0, skip - 1);
        const uint64_t length = static_cast<uint64_t>(pick(1, static_cast<int>(source.size()) - channel));
        const Bytes encoded = packedBitsForRange(source.data(), source.size(), channel, length, skip);

        Bytes expected;
        for (uint64_t at = channel; at < channel + length; at += skip) expected.push_back(source[at]);
        ASSERT_EQ(pvtest::unpackBits(encoded), expected) << "round " << round;
        ASSERT_LE(encoded.size(), expected.size() + (expected.size() + 127) / 128);

        // Headers 0x80, 0x81 and 0xFF never occur, and no literal holds three
        // equal bytes in a row (those always become runs).
        for (size_t i = 0; i < encoded.size();) {
            const uint8_t h = encoded[i++];
            ASSERT_TRUE(h != 0x80 && h != 0x81 && h != 0xFF) << "header " << int(h);
            if (h >= 0x80) {
                i += 1;
                continue;
            }
            for (size_t k = i + 2; k < i + h + 1; ++k)
                ASSERT_FALSE(encoded[k] == encoded[k - 1] && encoded[k] == encoded[k - 2]);
            i += h + 1u;
        }
    }
}
