#pragma once
// Our PSD files read byte by byte, from the format's description rather than
// our writer: the header, the XMP resource, every layer record with its name
// blocks and section type, the channel data and the merged image. Throws
// std::runtime_error where a length or a signature does not add up.

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/packbits_decoder.h"

namespace pvtest {

using Bytes = std::vector<uint8_t>;

// Big-endian fields out of a byte vector; throws on overrun.
struct Reader {
    const Bytes& bytes;
    size_t pos = 0;

    void need(size_t n) const {
        if (pos + n > bytes.size()) throw std::runtime_error("read past the end at " + std::to_string(pos));
    }
    uint64_t unsignedValue(int n) {
        need(static_cast<size_t>(n));
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
        need(n);
        Bytes v(bytes.begin() + static_cast<ptrdiff_t>(pos), bytes.begin() + static_cast<ptrdiff_t>(pos + n));
        pos += n;
        return v;
    }
    std::string text(size_t n) {
        const Bytes b = take(n);
        return {b.begin(), b.end()};
    }
    void expect(const std::string& s) {
        if (text(s.size()) != s) throw std::runtime_error("no \"" + s + "\" at " + std::to_string(pos - s.size()));
    }
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
    uint8_t opacity = 0, flags = 0;
    std::string name;            // the one-byte Pascal name
    size_t padding = 0;          // zero bytes after it
    std::u16string unicodeName;  // the luni block's UTF-16 units
    uint32_t unicodeLength = 0;  // its data length, padding included
    int32_t sectionType = 0;     // lsct: 0 none, 2 folder, 3 divider
    std::string sectionBlend;    // lsct's blend key, when it carries one
    size_t size = 0;             // the whole record's bytes
};

struct PsdFile {
    uint16_t version = 0, channels = 0, depth = 0, mode = 0;
    uint32_t height = 0, width = 0;
    uint32_t resourcesLength = 0;
    uint16_t resourceId = 0;
    std::string xmp;
    size_t layerSectionStart = 0;  // offset of the section length field
    uint32_t layerSectionLength = 0, layerInfoLength = 0;
    int16_t layerCount = 0;
    std::vector<PsdRecord> records;  // bottom of the stack first, as stored
    std::vector<Bytes> channelData;  // per record, its four blocks
    uint16_t mergedCompression = 0;
    std::vector<uint16_t> mergedCounts;
    Bytes mergedRows;

    // The merged image back as interleaved RGBA.
    Bytes mergedPixels() const {
        Bytes rgba(static_cast<size_t>(width) * height * 4);
        size_t at = 0;
        for (uint32_t c = 0; c < 4; ++c)
            for (uint32_t y = 0; y < height; ++y) {
                const uint16_t n = mergedCounts.at(c * height + y);
                if (at + n > mergedRows.size()) throw std::runtime_error("merged rows run past the end");
                const Bytes row = unpackBits(mergedRows.data() + at, n);
                at += n;
                if (row.size() != width) throw std::runtime_error("a merged row of the wrong width");
                for (uint32_t x = 0; x < width; ++x) rgba[(y * width + x) * 4 + c] = row[x];
            }
        if (at != mergedRows.size()) throw std::runtime_error("bytes after the merged rows");
        return rgba;
    }
};

inline PsdRecord readPsdRecord(Reader& r) {
    PsdRecord rec;
    const size_t start = r.pos;
    rec.top = r.i32();
    rec.left = r.i32();
    rec.bottom = r.i32();
    rec.right = r.i32();
    const uint16_t n = r.u16();
    for (int i = 0; i < n; ++i) {
        const int16_t id = r.i16();
        rec.channels.emplace_back(id, r.u32());
    }
    r.expect("8BIM");
    rec.blendKey = r.text(4);
    rec.opacity = r.u8();
    r.u8();  // clipping
    rec.flags = r.u8();
    r.u8();  // filler
    const uint32_t extraLength = r.u32();
    const size_t extraEnd = r.pos + extraLength;
    if (r.u32() != 0 || r.u32() != 0) throw std::runtime_error("a layer mask or blending ranges");
    const uint8_t nameLength = r.u8();
    rec.name = r.text(nameLength);
    rec.padding = (4 - (nameLength + 1u) % 4) % 4;
    if (r.take(rec.padding) != Bytes(rec.padding, 0)) throw std::runtime_error("name padding is not zero");
    while (r.pos < extraEnd) {
        r.expect("8BIM");
        const std::string key = r.text(4);
        const uint32_t length = r.u32();
        const Bytes data = r.take(length);
        Reader block{data};
        if (key == "luni") {
            rec.unicodeLength = length;
            const uint32_t units = block.u32();
            for (uint32_t k = 0; k < units; ++k) rec.unicodeName.push_back(static_cast<char16_t>(block.u16()));
            if (length % 4 != 0 || block.left() > 3 || block.take(block.left()) != Bytes(block.left(), 0))
                throw std::runtime_error("luni block badly padded");
        } else if (key == "lsct") {
            rec.sectionType = static_cast<int32_t>(block.u32());
            if (block.left() > 0) {
                block.expect("8BIM");
                rec.sectionBlend = block.text(4);
            }
        }
    }
    if (r.pos != extraEnd) throw std::runtime_error("extra data longer than its length");
    rec.size = r.pos - start;
    return rec;
}

inline PsdFile parsePsd(const Bytes& file) {
    PsdFile p;
    Reader r{file};
    r.expect("8BPS");
    p.version = r.u16();
    if (r.take(6) != Bytes(6, 0)) throw std::runtime_error("reserved header bytes are not zero");
    p.channels = r.u16();
    p.height = r.u32();
    p.width = r.u32();
    p.depth = r.u16();
    p.mode = r.u16();
    r.take(r.u32());  // colour mode data
    p.resourcesLength = r.u32();
    const size_t resourcesEnd = r.pos + p.resourcesLength;
    r.expect("8BIM");
    p.resourceId = r.u16();
    if (r.u16() != 0) throw std::runtime_error("resource name is not empty");
    p.xmp = r.text(r.u32());
    if (r.pos != resourcesEnd) throw std::runtime_error("resource section length disagrees");
    p.layerSectionStart = r.pos;
    p.layerSectionLength = r.u32();
    p.layerInfoLength = r.u32();
    const size_t infoStart = r.pos;
    p.layerCount = r.i16();
    for (int i = 0; i < (p.layerCount < 0 ? -p.layerCount : p.layerCount); ++i) p.records.push_back(readPsdRecord(r));
    for (const auto& rec : p.records) {
        size_t total = 0;
        for (const auto& ch : rec.channels) total += ch.second;
        p.channelData.push_back(r.take(total));
    }
    if (r.pos != infoStart + p.layerInfoLength) throw std::runtime_error("layer info length disagrees");
    if (r.u32() != 0) throw std::runtime_error("global layer mask info");
    if (r.pos != p.layerSectionStart + 4 + p.layerSectionLength)
        throw std::runtime_error("layer section length disagrees");
    p.mergedCompression = r.u16();
    for (uint32_t i = 0; i < 4 * p.height; ++i) p.mergedCounts.push_back(r.u16());
    p.mergedRows = r.take(r.left());
    return p;
}

inline PsdFile parsePsdFile(const std::string& path) { return parsePsd(readFile(path)); }

}  // namespace pvtest
