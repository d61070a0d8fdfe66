#pragma once
// Our PSD files read byte by byte, from the format's description rather than
// our writer: the header, the XMP resource, every layer record with its name
// blocks and section type, the channel data and the merged image. Throws
// std::runtime_error where a length, a signature or a fixed field does not
// add up.

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/packbits_decoder.h"

namespace pvtest {

using Bytes = std::vector<uint8_t>;

inline void check(bool ok, const std::string& what) {
    if (!ok) throw std::runtime_error(what);
}

// Big-endian fields out of a byte vector; throws on overrun.
struct Reader {
    const Bytes& bytes;
    size_t pos = 0;

    uint64_t unsignedValue(int n) {
        check(pos + static_cast<size_t>(n) <= bytes.size(), "read past the end at " + std::to_string(pos));
        uint64_t v = 0;
        for (int i = 0; i < n; ++i) v = (v << 8) | bytes[pos++];
        return v;
    }
    uint8_t u8() { return static_cast<uint8_t>(unsignedValue(1)); }
    uint16_t u16() { return static_cast<uint16_t>(unsignedValue(2)); }
    int16_t i16() { return static_cast<int16_t>(unsignedValue(2)); }
    uint32_t u32() { return static_cast<uint32_t>(unsignedValue(4)); }
    int32_t i32() { return static_cast<int32_t>(unsignedValue(4)); }
    Bytes take(size_t n) {
        check(pos + n <= bytes.size(), "read past the end at " + std::to_string(pos));
        pos += n;
        return Bytes(bytes.begin() + static_cast<ptrdiff_t>(pos - n), bytes.begin() + static_cast<ptrdiff_t>(pos));
    }
    std::string text(size_t n) {
        const Bytes b = take(n);
        return {b.begin(), b.end()};
    }
    void expect(const std::string& s) { check(text(s.size()) == s, "no \"" + s + "\" at " + std::to_string(pos)); }
    size_t left() const { return bytes.size() - pos; }
};

inline Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct PsdRecord {
    int32_t top = 0, left = 0, bottom = 0, right = 0;
    std::vector<std::pair<int16_t, uint32_t>> channels;  // id, length
    std::string blendKey;
    uint8_t flags = 0;
    std::string name;            // the one-byte Pascal name
    std::u16string unicodeName;  // the luni block's UTF-16 units
    int32_t sectionType = 0;     // lsct: 0 none, 2 folder, 3 divider
    std::string sectionBlend;    // lsct's blend key, when it carries one
    size_t size = 0;             // the whole record's bytes
};

struct PsdFile {
    uint32_t height = 0, width = 0;
    uint16_t resourceId = 0;
    std::string xmp;
    size_t layerSectionStart = 0;  // offset of the section length field
    uint32_t layerInfoLength = 0;
    int16_t layerCount = 0;
    std::vector<PsdRecord> records;  // bottom of the stack first, as stored
    std::vector<Bytes> channelData;  // per record, its four blocks
    Bytes merged;                    // the merged image as interleaved RGBA
};

inline PsdRecord readPsdRecord(Reader& r) {
    PsdRecord rec;
    const size_t start = r.pos;
    rec.top = r.i32();
    rec.left = r.i32();
    rec.bottom = r.i32();
    rec.right = r.i32();
    for (int i = r.u16(); i > 0; --i) {
        const int16_t id = r.i16();
        rec.channels.emplace_back(id, r.u32());
    }
    r.expect("8BIM");
    rec.blendKey = r.text(4);
    check(r.u8() == 255 && r.u8() == 0, "opacity or clipping");
    rec.flags = r.u8();
    r.u8();  // filler
    const uint32_t extraLength = r.u32();
    const size_t extraEnd = r.pos + extraLength;
    check(r.u32() == 0 && r.u32() == 0, "a layer mask or blending ranges");
    const uint8_t nameLength = r.u8();
    rec.name = r.text(nameLength);
    const size_t padding = (4 - (nameLength + 1u) % 4) % 4;
    check(r.take(padding) == Bytes(padding, 0), "name padding is not zero");
    while (r.pos < extraEnd) {
        r.expect("8BIM");
        const std::string key = r.text(4);
        const uint32_t length = r.u32();
        const Bytes data = r.take(length);
        Reader block{data};
        if (key == "luni") {
            for (uint32_t units = block.u32(); units > 0; --units)
                rec.unicodeName.push_back(static_cast<char16_t>(block.u16()));
            check(length % 4 == 0 && block.left() <= 3 && block.take(block.left()) == Bytes(block.left(), 0),
                  "luni block badly padded");
        } else if (key == "lsct") {
            rec.sectionType = static_cast<int32_t>(block.u32());
            if (block.left() > 0) {
                block.expect("8BIM");
                rec.sectionBlend = block.text(4);
            }
        }
    }
    check(r.pos == extraEnd, "extra data longer than its length");
    rec.size = r.pos - start;
    return rec;
}

inline PsdFile parsePsd(const Bytes& file) {
    PsdFile p;
    Reader r{file};
    r.expect("8BPS");
    check(r.u16() == 1 && r.take(6) == Bytes(6, 0) && r.u16() == 4, "not a version 1 header of 4 channels");
    p.height = r.u32();
    p.width = r.u32();
    check(r.u16() == 8 && r.u16() == 3, "not 8-bit RGB");
    r.take(r.u32());  // colour mode data
    const uint32_t resourcesLength = r.u32();
    const size_t resourcesEnd = r.pos + resourcesLength;
    r.expect("8BIM");
    p.resourceId = r.u16();
    check(r.u16() == 0, "resource name is not empty");
    p.xmp = r.text(r.u32());
    check(r.pos == resourcesEnd, "resource section length disagrees");
    p.layerSectionStart = r.pos;
    const uint32_t layerSectionLength = r.u32();
    p.layerInfoLength = r.u32();
    const size_t infoStart = r.pos;
    p.layerCount = r.i16();
    for (int i = 0; i < (p.layerCount < 0 ? -p.layerCount : p.layerCount); ++i) p.records.push_back(readPsdRecord(r));
    for (const auto& rec : p.records) {
        size_t total = 0;
        for (const auto& ch : rec.channels) total += ch.second;
        p.channelData.push_back(r.take(total));
    }
    check(r.pos == infoStart + p.layerInfoLength, "layer info length disagrees");
    check(r.u32() == 0, "global layer mask info");
    check(r.pos == p.layerSectionStart + 4 + layerSectionLength, "layer section length disagrees");
    check(r.u16() == 1, "the merged image is not PackBits");
    std::vector<uint16_t> counts;
    for (uint32_t i = 0; i < 4 * p.height; ++i) counts.push_back(r.u16());
    p.merged.resize(static_cast<size_t>(p.width) * p.height * 4);
    for (uint32_t c = 0; c < 4; ++c)
        for (uint32_t y = 0; y < p.height; ++y) {
            const Bytes row = unpackBits(r.take(counts[c * p.height + y]));
            check(row.size() == p.width, "a merged row of the wrong width");
            for (uint32_t x = 0; x < p.width; ++x) p.merged[(y * p.width + x) * 4 + c] = row[x];
        }
    check(r.left() == 0, "bytes after the merged rows");
    return p;
}

inline PsdFile parsePsdFile(const std::string& path) { return parsePsd(readFile(path)); }

}  // namespace pvtest
