#pragma once
// Reads the outline of a PSD file for tests: size, and each layer record's
// rectangle, name and section type (0 pixel layer, 1/2 open/closed folder,
// 3 group divider), bottom record first as stored.

#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace pv::test {

struct PsdRecord {
    int32_t top = 0, left = 0, bottom = 0, right = 0;
    std::string name;
    int32_t sectionType = 0;
};

struct PsdOutline {
    int32_t width = 0, height = 0;
    int16_t layerCount = 0;
    std::string imageResources;  // the image resource section's bytes
    std::vector<PsdRecord> records;
};

inline std::optional<PsdOutline> readPsdOutline(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<uint8_t> b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t p = 0;
    const auto need = [&](size_t n) { return p + n <= b.size(); };
    const auto u32 = [&] { uint32_t v = (uint32_t(b[p]) << 24) | (uint32_t(b[p + 1]) << 16) | (uint32_t(b[p + 2]) << 8) | b[p + 3]; p += 4; return v; };
    const auto u16 = [&] { uint16_t v = uint16_t((b[p] << 8) | b[p + 1]); p += 2; return v; };
    if (!need(26) || std::string(b.begin(), b.begin() + 4) != "8BPS") return std::nullopt;
    PsdOutline out;
    p = 14;
    out.height = static_cast<int32_t>(u32());
    out.width = static_cast<int32_t>(u32());
    p = 26;
    if (!need(4)) return std::nullopt;
    p += u32();  // colour mode data
    if (!need(4)) return std::nullopt;
    const uint32_t resourcesLength = u32();
    if (!need(resourcesLength)) return std::nullopt;
    out.imageResources.assign(b.begin() + static_cast<long>(p), b.begin() + static_cast<long>(p + resourcesLength));
    p += resourcesLength;
    if (!need(10)) return std::nullopt;
    u32();       // layer and mask section length
    u32();       // layer info length
    out.layerCount = static_cast<int16_t>(u16());
    const int n = out.layerCount < 0 ? -out.layerCount : out.layerCount;
    for (int i = 0; i < n; ++i) {
        if (!need(18)) return std::nullopt;
        PsdRecord r;
        r.top = static_cast<int32_t>(u32());
        r.left = static_cast<int32_t>(u32());
        r.bottom = static_cast<int32_t>(u32());
        r.right = static_cast<int32_t>(u32());
        const int channels = u16();
        p += static_cast<size_t>(channels) * 6 + 12;  // channel info, blend signature/key, opacity..filler
        if (!need(4)) return std::nullopt;
        const uint32_t extra = u32();
        const size_t extraEnd = p + extra;
        p += 4 + 4;  // mask and blending ranges lengths (0 in our files)
        const uint8_t nameLength = b[p++];
        r.name.assign(b.begin() + static_cast<long>(p), b.begin() + static_cast<long>(p + nameLength));
        p += nameLength;
        p += (4 - (nameLength + 1) % 4) % 4;
        while (p + 12 <= extraEnd) {
            p += 4;  // "8BIM"
            const std::string key(b.begin() + static_cast<long>(p), b.begin() + static_cast<long>(p + 4));
            p += 4;
            const uint32_t length = u32();
            if (key == "lsct") {
                const size_t save = p;
                r.sectionType = static_cast<int32_t>(u32());
                p = save;
            }
            p += length;
        }
        p = extraEnd;
        out.records.push_back(r);
    }
    return out;
}

}  // namespace pv::test
