#pragma once
// A strict reader of the PSD files we write, for the fuzz targets: every
// length is walked and must end exactly where the next part begins, every
// channel must decode to exactly the pixels of its record's rectangle, and
// the file must end where the merged image does. Written from the format's
// description, not from our writer.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/packbits_decoder.h"

namespace pvfuzz {

struct WalkedRecord {
    int32_t top = 0, left = 0, bottom = 0, right = 0;
    std::string name;
};

struct WalkedPSD {
    uint32_t width = 0, height = 0;
    std::vector<WalkedRecord> records;  // as stored: bottom of the stack first
};

class PsdWalk {
public:
    explicit PsdWalk(const std::vector<uint8_t>& bytes) : b_(bytes) {}

    WalkedPSD walk() {
        WalkedPSD psd;
        expect(text(4) == "8BPS", "signature");
        expect(u(2) == 1, "version");
        for (int i = 0; i < 6; ++i) expect(u(1) == 0, "reserved bytes");
        expect(u(2) == 4, "channel count");
        psd.height = static_cast<uint32_t>(u(4));
        psd.width = static_cast<uint32_t>(u(4));
        expect(psd.width >= 1 && psd.height >= 1 && psd.width <= 30000 && psd.height <= 30000, "canvas size");
        expect(u(2) == 8, "depth");
        expect(u(2) == 3, "colour mode");
        skip(u(4));  // colour mode data

        const size_t resourcesEnd = end(u(4));
        while (pos_ < resourcesEnd) {
            expect(text(4) == "8BIM", "resource signature");
            u(2);
            const uint64_t nameLength = u(1);
            skip(nameLength + (nameLength % 2 == 0 ? 1 : 0));  // the name and its length byte, padded even
            const uint64_t size = u(4);
            skip(size + size % 2);
        }
        expect(pos_ == resourcesEnd, "resources end where their length says");

        const size_t sectionEnd = end(u(4));
        const size_t infoEnd = end(u(4));
        const auto count = static_cast<int16_t>(u(2));
        const int n = count < 0 ? -count : count;
        std::vector<std::vector<uint64_t>> channelLengths(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) psd.records.push_back(record(channelLengths[static_cast<size_t>(i)]));
        for (int i = 0; i < n; ++i) {
            const WalkedRecord& r = psd.records[static_cast<size_t>(i)];
            for (uint64_t length : channelLengths[static_cast<size_t>(i)])
                channel(length, static_cast<uint64_t>(r.right - r.left), static_cast<uint64_t>(r.bottom - r.top));
        }
        expect(pos_ == infoEnd, "layer info ends where its length says");
        skip(u(4));  // global layer mask info
        expect(pos_ == sectionEnd, "layer section ends where its length says");

        expect(u(2) == 1, "merged image compression");
        std::vector<uint64_t> counts;
        for (uint64_t i = 0; i < 4ull * psd.height; ++i) counts.push_back(u(2));
        for (uint64_t c : counts) row(c, psd.width);
        expect(pos_ == b_.size(), "the file ends with the merged image");
        return psd;
    }

private:
    WalkedRecord record(std::vector<uint64_t>& lengths) {
        WalkedRecord r;
        r.top = static_cast<int32_t>(u(4));
        r.left = static_cast<int32_t>(u(4));
        r.bottom = static_cast<int32_t>(u(4));
        r.right = static_cast<int32_t>(u(4));
        expect(r.bottom >= r.top && r.right >= r.left, "record rectangle");
        const uint64_t channels = u(2);
        for (uint64_t c = 0; c < channels; ++c) {
            u(2);
            lengths.push_back(u(4));
        }
        expect(text(4) == "8BIM", "blend mode signature");
        text(4);
        skip(4);  // opacity, clipping, flags, filler
        const size_t extraEnd = end(u(4));
        skip(u(4));  // layer mask data
        skip(u(4));  // blending ranges
        const uint64_t nameLength = u(1);
        r.name = text(nameLength);
        skip((4 - (nameLength + 1) % 4) % 4);
        while (pos_ < extraEnd) {
            expect(text(4) == "8BIM", "additional information signature");
            text(4);
            skip(u(4));
        }
        expect(pos_ == extraEnd, "extra data ends where its length says");
        return r;
    }

    void channel(uint64_t length, uint64_t width, uint64_t height) {
        const size_t blockEnd = end(length);
        const uint64_t compression = u(2);
        if (compression == 0) {
            skip(width * height);
        } else {
            expect(compression == 1, "channel compression");
            std::vector<uint64_t> counts;
            for (uint64_t y = 0; y < height; ++y) counts.push_back(u(2));
            for (uint64_t c : counts) row(c, width);
        }
        expect(pos_ == blockEnd, "channel data fills exactly its rectangle");
    }

    void row(uint64_t length, uint64_t width) {
        const size_t start = end(length);
        expect(pvtest::unpackBits(b_.data() + pos_, length).size() == width, "a row decodes to its width");
        pos_ = start;
    }

    static void expect(bool ok, const char* what) {
        if (!ok) throw std::runtime_error(std::string("bad ") + what);
    }
    // The offset `length` bytes on, which must lie within the file.
    size_t end(uint64_t length) const {
        expect(length <= b_.size() - pos_, "length beyond the end of the file");
        return pos_ + static_cast<size_t>(length);
    }
    void skip(uint64_t n) { pos_ = end(n); }
    uint64_t u(int n) {
        const size_t stop = end(static_cast<uint64_t>(n));
        uint64_t v = 0;
        for (; pos_ < stop; ++pos_) v = v << 8 | b_[pos_];
        return v;
    }
    std::string text(uint64_t n) {
        const size_t stop = end(n);
        std::string s(b_.begin() + static_cast<ptrdiff_t>(pos_), b_.begin() + static_cast<ptrdiff_t>(stop));
        pos_ = stop;
        return s;
    }

    const std::vector<uint8_t>& b_;
    size_t pos_ = 0;
};

}  // namespace pvfuzz
