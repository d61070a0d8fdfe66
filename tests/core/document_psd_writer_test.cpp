// The PSD file: its bytes, its layer records, the merged image, the XMP
// packet, names, and what happens when it cannot be written.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <regex>
#include <set>

#include "document/byte_buffer.h"
#include "document/file_naming.h"
#include "document/layer_preparation.h"
#include "document/merged_image.h"
#include "document/output_format.h"
#include "document/psd_writer.h"
#include "document/unpremultiply.h"
#include "document_test_support.h"

using namespace pv;
using Bytes = std::vector<uint8_t>;
using pvtest::Reader;

namespace {

const std::string kTemplate =
    "<x:xmpmeta><CreatorTool>XMP_CREATOR</CreatorTool><CreateDate>XMP_DATE</CreateDate>"
    "<ModifyDate>XMP_DATE</ModifyDate><title>XMP_TITLE</title><w>XMP_WIDTH</w><h>XMP_HEIGHT</h></x:xmpmeta>";

struct Record {
    int32_t top, left, bottom, right;
    std::vector<std::pair<int16_t, uint32_t>> channels;
    std::string blendKey;
    uint8_t opacity, clipping, flags;
    uint32_t extraLength;
    std::string name;
    Bytes padding;
    uint32_t unicodeLength = 0;  // the luni block's data length
    std::u16string unicodeName;  // its UTF-16 code units
    Bytes unicodePadding;        // what follows them inside the block
    Bytes divider;               // the other blocks after the name inside the extra data
    size_t size;
};

struct ParsedPSD {
    uint16_t version, channels, depth, mode;
    uint32_t height, width;
    uint32_t colourModeLength;
    uint32_t resourcesLength;
    std::string resourceSignature;
    uint16_t resourceId, resourceName;
    std::string xmp;
    size_t layerSectionStart;  // offset of the section length field
    uint32_t layerSectionLength, layerInfoLength;
    int16_t layerCount;
    std::vector<Record> records;
    std::vector<Bytes> channelData;  // per record, all four blocks
    uint32_t globalMaskLength;
    uint16_t mergedCompression;
    std::vector<uint16_t> mergedCounts;
    Bytes mergedRows;
};

Record readRecord(Reader& r) {
    Record rec{};
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
    EXPECT_EQ(r.text(4), "8BIM");
    rec.blendKey = r.text(4);
    rec.opacity = r.u8();
    rec.clipping = r.u8();
    rec.flags = r.u8();
    EXPECT_EQ(r.u8(), 0);  // filler
    rec.extraLength = r.u32();
    const size_t extraStart = r.pos;
    EXPECT_EQ(r.u32(), 0u);  // layer mask
    EXPECT_EQ(r.u32(), 0u);  // blending ranges
    const uint8_t nameLength = r.u8();
    rec.name = r.text(nameLength);
    const size_t pad = (4 - (nameLength + 1u) % 4) % 4;
    rec.padding = r.take(pad);
    // Tagged blocks: signature, key, length, data.
    while (r.pos < extraStart + rec.extraLength) {
        const std::string signature = r.text(4), key = r.text(4);
        const uint32_t length = r.u32();
        const Bytes data = r.take(length);
        if (key != "luni") {
            rec.divider.insert(rec.divider.end(), signature.begin(), signature.end());
            rec.divider.insert(rec.divider.end(), key.begin(), key.end());
            pv::appendValue(rec.divider, length, 4);
            rec.divider.insert(rec.divider.end(), data.begin(), data.end());
            continue;
        }
        EXPECT_EQ(signature, "8BIM");
        rec.unicodeLength = length;
        Reader block{data};
        const uint32_t units = block.u32();
        for (uint32_t k = 0; k < units; ++k) rec.unicodeName.push_back(static_cast<char16_t>(block.u16()));
        rec.unicodePadding = block.take(block.left());
    }
    EXPECT_EQ(r.pos, extraStart + rec.extraLength);
    rec.size = r.pos - start;
    return rec;
}

ParsedPSD parse(const Bytes& file) {
    ParsedPSD p{};
    Reader r{file};
    EXPECT_EQ(r.text(4), "8BPS");
    p.version = r.u16();
    EXPECT_EQ(r.take(6), Bytes(6, 0));
    p.channels = r.u16();
    p.height = r.u32();
    p.width = r.u32();
    p.depth = r.u16();
    p.mode = r.u16();
    p.colourModeLength = r.u32();
    p.resourcesLength = r.u32();
    p.resourceSignature = r.text(4);
    p.resourceId = r.u16();
    p.resourceName = r.u16();
    const uint32_t x = r.u32();
    p.xmp = r.text(x);
    p.layerSectionStart = r.pos;
    p.layerSectionLength = r.u32();
    p.layerInfoLength = r.u32();
    p.layerCount = r.i16();
    const int n = p.layerCount < 0 ? -p.layerCount : p.layerCount;
    for (int i = 0; i < n; ++i) p.records.push_back(readRecord(r));
    for (const auto& rec : p.records) {
        size_t total = 0;
        for (auto& ch : rec.channels) total += ch.second;
        p.channelData.push_back(r.take(total));
    }
    p.globalMaskLength = r.u32();
    p.mergedCompression = r.u16();
    for (uint32_t i = 0; i < 4 * p.height; ++i) p.mergedCounts.push_back(r.u16());
    p.mergedRows = r.take(r.left());
    return p;
}

// Decodes the merged image back into interleaved RGBA.
Bytes mergedPixels(const ParsedPSD& p) {
    Bytes rgba(static_cast<size_t>(p.width) * p.height * 4);
    size_t at = 0;
    for (uint32_t c = 0; c < 4; ++c)
        for (uint32_t y = 0; y < p.height; ++y) {
            const uint16_t n = p.mergedCounts[c * p.height + y];
            const Bytes row = pvtest::unpackBits(p.mergedRows.data() + at, n);
            at += n;
            EXPECT_EQ(row.size(), p.width);
            for (uint32_t x = 0; x < p.width && x < row.size(); ++x) rgba[(y * p.width + x) * 4 + c] = row[x];
        }
    EXPECT_EQ(at, p.mergedRows.size());
    return rgba;
}

LayerPtr prepared(LayerPtr layer) {
    prepareLayer(*layer);
    return layer;
}

struct Written {
    WriteResult result;
    Bytes file;
    std::vector<std::string> statuses;
};

Written write(const std::string& path, Size size, Bytes merged, const std::vector<LayerPtr>& layers,
              const std::string& xmpTemplate = kTemplate) {
    Written w;
    w.result = writePSD(path, size, merged, layers, xmpTemplate, [&w](const std::string& s) { w.statuses.push_back(s); });
    if (w.result.ok) w.file = pvtest::readFile(path);
    return w;
}

}  // namespace

// ---------------------------------------------------------------- file layout

TEST(PSDWriter, WorkedExampleOfOneOpaquePixel) {
    pvtest::ScratchDir dir;
    const std::string path = dir / "one.psd";
    auto w = write(path, {1, 1}, {10, 20, 30, 255}, {prepared(pvtest::pixelLayer("A", 0, 0, 1, 1, {10, 20, 30, 255}))});
    ASSERT_TRUE(w.result.ok) << w.result.error;
    EXPECT_TRUE(w.result.error.empty());

    // Header and empty colour mode data.
    const Bytes header{'8', 'B', 'P', 'S', 0, 1, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0, 1, 0, 8, 0, 3, 0, 0, 0, 0};
    ASSERT_GT(w.file.size(), header.size());
    EXPECT_EQ(Bytes(w.file.begin(), w.file.begin() + 30), header);

    // Image resources: one XMP resource of even length.
    const ParsedPSD p = parse(w.file);
    EXPECT_EQ(p.resourceSignature, "8BIM");
    EXPECT_EQ(p.resourceId, 1060);
    EXPECT_EQ(p.resourceName, 0);
    EXPECT_EQ(p.xmp.size() % 2, 0u);
    EXPECT_EQ(p.resourcesLength, p.xmp.size() + 12);
    EXPECT_NE(p.xmp.find("<CreatorTool>Veltrano Plenavue</CreatorTool>"), std::string::npos);
    EXPECT_NE(p.xmp.find("<title>one.psd</title><w>1</w><h>1</h>"), std::string::npos);
    EXPECT_TRUE(std::regex_search(p.xmp, std::regex("<CreateDate>\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d</CreateDate>")));
    EXPECT_EQ(p.xmp.find("XMP_"), std::string::npos);

    // Everything after the resources, byte for byte.
    const Bytes rest{
        0, 0, 0, 0x7C, 0, 0, 0, 0x74, 0xFF, 0xFF,
        // record
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 4,
        0, 0, 0, 0, 0, 6, 0, 1, 0, 0, 0, 6, 0, 2, 0, 0, 0, 6, 0xFF, 0xFF, 0, 0, 0, 6,
        '8', 'B', 'I', 'M', 'n', 'o', 'r', 'm', 0xFF, 0, 0, 0,
        0, 0, 0, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 1, 'A', 0, 0,
        '8', 'B', 'I', 'M', 'l', 'u', 'n', 'i', 0, 0, 0, 8, 0, 0, 0, 1, 0, 'A', 0, 0,
        // channel data
        0, 1, 0, 2, 0, 0x0A, 0, 1, 0, 2, 0, 0x14, 0, 1, 0, 2, 0, 0x1E, 0, 1, 0, 2, 0, 0xFF,
        // global layer mask info
        0, 0, 0, 0,
        // merged image
        0, 1, 0, 2, 0, 2, 0, 2, 0, 2, 0, 0x0A, 0, 0x14, 0, 0x1E, 0, 0xFF};
    EXPECT_EQ(Bytes(w.file.begin() + static_cast<ptrdiff_t>(p.layerSectionStart), w.file.end()), rest);

    EXPECT_EQ(w.statuses, (std::vector<std::string>{"Writing: A", "Writing composite..."}));
}

TEST(PSDWriter, RecordRectangleAndLengthsOfAPixelLayer) {
    pvtest::ScratchDir dir;
    auto layer = prepared(pvtest::pixelLayer("Untitled", 20, 30, 10, 5, pvtest::solid(10, 5, 0, 0, 0, 255)));
    auto w = write(dir / "r.psd", {64, 48}, Bytes(64 * 48 * 4, 0), {layer});
    ASSERT_TRUE(w.result.ok) << w.result.error;
    const ParsedPSD p = parse(w.file);
    ASSERT_EQ(p.records.size(), 1u);
    const Record& r = p.records[0];
    EXPECT_EQ(std::tie(r.top, r.left, r.bottom, r.right), std::make_tuple(30, 20, 35, 30));
    ASSERT_EQ(r.channels.size(), 4u);
    const int16_t ids[4] = {0, 1, 2, -1};
    for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(r.channels[c].first, ids[c]);
        EXPECT_EQ(r.channels[c].second, static_cast<uint32_t>(layer->channelSizes[c]));
    }
    EXPECT_EQ(r.flags, 0);
    EXPECT_EQ(r.opacity, 255);
    EXPECT_EQ(r.blendKey, "norm");
    EXPECT_EQ(p.channelData[0], layer->imageData);
    EXPECT_EQ(p.layerCount, -1);
    EXPECT_EQ(p.layerInfoLength + 8, p.layerSectionLength);
    EXPECT_EQ(p.layerInfoLength, 2 + r.size + layer->imageData.size());
}

TEST(PSDWriter, RecordEdgesAreTheRoundedCornerAndTheSizeOfTheEncodedPixels) {
    struct Case {
        CanvasRect at;
        int w, h;                          // pixels held
        int32_t top, left, bottom, right;  // as recorded
    };
    const std::vector<Case> cases{
        {{10.5, 2.5, 7, 5}, 7, 5, 3, 11, 8, 18},
        {{10.4999, 2.5001, 7.9, 5.2}, 7, 5, 3, 10, 8, 17},  // fractional sizes: the pixels held count
        {{-0.5, -1.5, 3, 2}, 3, 2, -2, -1, 0, 2},           // halves away from zero
        {{-2.25, 0.75, 1, 1}, 1, 1, 1, -2, 2, -1},
        // A shadowed window at scale 1.5: a width of 182 pixels starting at 14.5 ends at 197, not 196.
        {{14.5, 6.0, 182, 138}, 182, 138, 6, 15, 144, 197},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(rectToString(c.at));
        pvtest::ScratchDir dir;
        auto layer = pvtest::pixelLayer("L", 0, 0, c.w, c.h, pvtest::solid(c.w, c.h, 9, 8, 7, 255));
        layer->location = c.at;
        // The merged image of a saved selection draws the layer at the same edges.
        const Image merged = composeLayers({layer}, 240, 160);
        if (c.left > 0 && c.top >= 0) {
            EXPECT_EQ(merged.row(c.top)[c.left * 4 + 3], 255);
            EXPECT_EQ(merged.row(c.top)[(c.left - 1) * 4 + 3], 0);
        }
        prepareLayer(*layer);
        auto w = write(dir / "edges.psd", {240, 160}, Bytes(240 * 160 * 4, 0), {layer});
        ASSERT_TRUE(w.result.ok) << w.result.error;
        const ParsedPSD p = parse(w.file);
        ASSERT_EQ(p.records.size(), 1u);
        const Record& r = p.records[0];
        EXPECT_EQ(std::tie(r.top, r.left, r.bottom, r.right), std::tie(c.top, c.left, c.bottom, c.right));
    }
}

TEST(PSDWriter, NamesArePaddedSoTheirLengthByteAndBytesMakeAMultipleOfFour) {
    struct Case {
        std::string name;
        size_t padding;
    };
    for (const Case& c : {Case{"abc", 0}, Case{"abcd", 3}, Case{"", 3}, Case{"ab", 1}, Case{"abcde", 2}}) {
        pvtest::ScratchDir dir;
        auto w = write(dir / "n.psd", {1, 1}, {0, 0, 0, 0}, {prepared(pvtest::pixelLayer(c.name, 0, 0, 1, 1, {0, 0, 0, 0}))});
        ASSERT_TRUE(w.result.ok) << w.result.error;
        const Record r = parse(w.file).records.at(0);
        EXPECT_EQ(r.name, c.name);
        EXPECT_EQ(r.padding, Bytes(c.padding, 0)) << "name \"" << c.name << "\"";
        const size_t unicode = 12 + (4 + 2 * c.name.size() + 3) / 4 * 4;
        EXPECT_EQ(r.extraLength, 9 + c.name.size() + c.padding + unicode);
        EXPECT_EQ(r.size, 67 + c.name.size() + c.padding + unicode);
        EXPECT_TRUE(r.divider.empty());
    }
}

TEST(PSDWriter, EmptyLayerListStillWritesTheMergedImage) {
    pvtest::ScratchDir dir;
    auto w = write(dir / "e.psd", {2, 3}, pvtest::solid(2, 3, 9, 9, 9, 255), {});
    ASSERT_TRUE(w.result.ok) << w.result.error;
    const ParsedPSD p = parse(w.file);
    EXPECT_EQ(p.layerSectionLength, 10u);
    EXPECT_EQ(p.layerInfoLength, 2u);
    EXPECT_EQ(p.layerCount, 0);
    EXPECT_EQ(p.globalMaskLength, 0u);
    EXPECT_EQ(p.mergedCompression, 1);
    EXPECT_EQ(mergedPixels(p), pvtest::solid(2, 3, 9, 9, 9, 255));
    EXPECT_EQ(w.statuses, (std::vector<std::string>{"Writing composite..."}));
}

TEST(PSDWriter, GroupIsWrittenAsDividerLayersBottomUpThenFolder) {
    pvtest::ScratchDir dir;
    // Top of the stack first: end(G), top, bottom, start(G).
    std::vector<LayerPtr> layers{makeGroupMarker(LayerTypeGroupEnd, "Editor"),
                                 prepared(pvtest::pixelLayer("top", 0, 0, 2, 2, pvtest::solid(2, 2, 255, 0, 0, 255))),
                                 prepared(pvtest::pixelLayer("bottom", 1, 1, 2, 2, pvtest::solid(2, 2, 0, 0, 255, 255))),
                                 makeGroupMarker(LayerTypeGroupStart, "Editor")};
    auto w = write(dir / "g.psd", {3, 3}, Bytes(36, 0), layers);
    ASSERT_TRUE(w.result.ok) << w.result.error;
    const ParsedPSD p = parse(w.file);
    EXPECT_EQ(p.layerCount, -4);
    ASSERT_EQ(p.records.size(), 4u);

    const Record& divider = p.records[0];
    EXPECT_EQ(divider.name, "Editor");
    EXPECT_EQ(divider.blendKey, "norm");
    EXPECT_EQ(divider.flags, 0x18);
    EXPECT_EQ(std::tie(divider.top, divider.left, divider.bottom, divider.right), std::make_tuple(0, 0, 0, 0));
    EXPECT_EQ(divider.divider, (Bytes{'8', 'B', 'I', 'M', 'l', 's', 'c', 't', 0, 0, 0, 4, 0, 0, 0, 3}));
    EXPECT_EQ(divider.extraLength, 25 + 6 + 1 + 28u);  // "Editor" in the Unicode block: 12 + 4 + 12
    EXPECT_EQ(divider.unicodeName, u"Editor");
    EXPECT_EQ(p.channelData[0], Bytes(8, 0));

    EXPECT_EQ(p.records[1].name, "bottom");
    EXPECT_EQ(p.records[1].flags, 0);
    EXPECT_EQ(p.records[2].name, "top");

    const Record& folder = p.records[3];
    EXPECT_EQ(folder.name, "Editor");
    EXPECT_EQ(folder.blendKey, "pass");  // the group's own record passes its layers through, as its section does
    EXPECT_EQ(folder.flags, 0x18);
    EXPECT_EQ(folder.divider, (Bytes{'8', 'B', 'I', 'M', 'l', 's', 'c', 't', 0, 0, 0, 12, 0, 0, 0, 2,
                                     '8', 'B', 'I', 'M', 'p', 'a', 's', 's'}));
    EXPECT_EQ(folder.extraLength, 33 + 6 + 1 + 28u);
    EXPECT_EQ(folder.unicodeName, u"Editor");
    for (const auto& ch : folder.channels) EXPECT_EQ(ch.second, 2u);

    EXPECT_EQ(w.statuses, (std::vector<std::string>{"Writing: Editor", "Writing: bottom", "Writing: top",
                                                    "Writing: Editor", "Writing composite..."}));
    // T counts every record and every entry's channel data.
    size_t t = 0;
    for (size_t i = 0; i < 4; ++i) t += p.records[i].size + p.channelData[i].size();
    EXPECT_EQ(p.layerInfoLength, t + 2);
    EXPECT_EQ(p.layerSectionLength, t + 10);
}

TEST(PSDWriter, MergedImageIsMattedOverWhiteAndStoredChannelByChannel) {
    pvtest::ScratchDir dir;
    struct Case {
        const char* what;
        Bytes premultiplied, stored;
    };
    // Stored colour: c * a/255 + 255 * (1 - a/255), the premultiplied colour plus the white not covered.
    const Case cases[] = {
        {"opaque: as it is", {10, 200, 255, 255}, {10, 200, 255, 255}},
        {"transparent: white", {0, 0, 0, 0}, {255, 255, 255, 0}},
        {"half-covered blue", {0, 0, 128, 128}, {127, 127, 255, 128}},
        {"a dark shadow's edge", {1, 1, 1, 20}, {236, 236, 236, 20}},
        {"colour above alpha stays within 255", {200, 10, 0, 100}, {255, 165, 155, 100}},
    };
    Bytes merged, expected;
    for (const Case& c : cases) {
        merged.insert(merged.end(), c.premultiplied.begin(), c.premultiplied.end());
        expected.insert(expected.end(), c.stored.begin(), c.stored.end());
    }
    const auto W = static_cast<uint32_t>(std::size(cases));
    auto w = write(dir / "m.psd", {static_cast<double>(W), 1}, merged, {});
    ASSERT_TRUE(w.result.ok) << w.result.error;
    const ParsedPSD p = parse(w.file);
    EXPECT_EQ(p.mergedCounts.size() * 2, 8u);
    const Bytes stored = mergedPixels(p);
    for (uint32_t i = 0; i < W; ++i) {
        SCOPED_TRACE(cases[i].what);
        EXPECT_EQ(Bytes(stored.begin() + 4 * i, stored.begin() + 4 * i + 4), cases[i].stored);
    }
}

TEST(PSDWriter, AnOpaqueMergedImageIsStoredAsItIs) {
    pvtest::ScratchDir dir;
    const uint32_t W = 7, H = 3;
    Bytes merged;
    for (uint32_t i = 0; i < W * H; ++i) merged.insert(merged.end(), {uint8_t(i * 11), uint8_t(i), uint8_t(255 - i), 255});
    auto w = write(dir / "o.psd", {W, H}, merged, {});
    ASSERT_TRUE(w.result.ok) << w.result.error;
    EXPECT_EQ(mergedPixels(parse(w.file)), merged);
}

TEST(PSDWriter, MergedRowCountsTakeEightBytesPerRow) {
    pvtest::ScratchDir dir;
    const uint32_t W = 300, H = 7;
    auto w = write(dir / "c.psd", {W, H}, pvtest::solid(W, H, 1, 2, 3, 255), {});
    ASSERT_TRUE(w.result.ok) << w.result.error;
    const ParsedPSD p = parse(w.file);
    // Code, 8 * H bytes of counts, then the rows they count, to the end.
    const size_t mergedStart = p.layerSectionStart + 4 + p.layerSectionLength;
    size_t rows = 0;
    for (auto n : p.mergedCounts) rows += n;
    EXPECT_EQ(w.file.size(), mergedStart + 2 + 8 * H + rows);
    // A flat row of 300 pixels: runs of 127, 127 and 46.
    for (auto n : p.mergedCounts) EXPECT_EQ(n, 6);
}

TEST(PSDWriter, FractionalCanvasSizeIsTruncated) {
    pvtest::ScratchDir dir;
    auto w = write(dir / "f.psd", {2.9, 1.5}, pvtest::solid(2, 1, 1, 2, 3, 255), {});
    ASSERT_TRUE(w.result.ok) << w.result.error;
    const ParsedPSD p = parse(w.file);
    EXPECT_EQ(p.width, 2u);
    EXPECT_EQ(p.height, 1u);
    EXPECT_EQ(mergedPixels(p), pvtest::solid(2, 1, 1, 2, 3, 255));
}

// ---------------------------------------------------------------- names and XMP

TEST(PSDNames, NonASCIICharactersBecomeQuestionMarksAndLongNamesAreCut) {
    EXPECT_EQ(psdLayerName("Untitled"), "Untitled");
    EXPECT_EQ(psdLayerName("Caf\xC3\xA9 \xE2\x80\x94 Men\xC3\xBC"), "Caf? ? Men?");
    EXPECT_EQ(psdLayerName("\xE6\x97\xA5\xE6\x9C\xAC"), "??");
    EXPECT_EQ(psdLayerName("smile \xF0\x9F\x98\x80!"), "smile ?!");
    EXPECT_EQ(psdLayerName("bad \xFF\xFE bytes"), "bad ?? bytes");
    EXPECT_EQ(psdLayerName(std::string(300, 'x')), std::string(255, 'x'));
    EXPECT_EQ(psdLayerName(std::string(254, 'x') + "\xC3\xA9\xC3\xA9"), std::string(254, 'x') + "?");
    EXPECT_EQ(psdLayerName(""), "");
}

TEST(PSDNames, ALongNonASCIINameIsWrittenConsistently) {
    pvtest::ScratchDir dir;
    const std::string name = std::string(100, 'a') + std::string(200, '\xC3') + "\xA9";  // broken UTF-8 too
    auto layer = prepared(pvtest::pixelLayer(name, 0, 0, 1, 1, {0, 0, 0, 255}));
    auto w = write(dir / "long.psd", {1, 1}, {0, 0, 0, 255}, {layer});
    ASSERT_TRUE(w.result.ok) << w.result.error;
    const ParsedPSD p = parse(w.file);
    const Record& r = p.records.at(0);
    EXPECT_EQ(r.name, psdLayerName(name));
    EXPECT_EQ(r.name.size(), 255u);
    EXPECT_TRUE(r.padding.empty());
    EXPECT_EQ(r.size, layerRecordSize(*layer));
    // The status line keeps the name as given.
    EXPECT_EQ(w.statuses.at(0), "Writing: " + name);
}

// Each record keeps its ASCII Pascal name and adds the whole name as UTF-16
// in a Unicode name block, group markers too; every length counts it.
TEST(PSDNames, EveryRecordCarriesTheWholeNameInItsUnicodeBlock) {
    struct Case {
        std::string name;
        std::string pascal;
        std::u16string units;
    };
    const std::vector<Case> cases{
        {"Untitled", "Untitled", u"Untitled"},
        {"\xC3\x9Cn\xC3\xAF \xE2\x80\x94 \xE6\x97\xA5\xE6\x9C\xAC \xE2\x9C\x93", "?n? ? ?? ?", u"\u00DCn\u00EF \u2014 \u65E5\u672C \u2713"},
        {"smile \xF0\x9F\x98\x80", "smile ?", u"smile \xD83D\xDE00"},  // a surrogate pair, two units
        {"", "", u""},
        {"bad \xFF", "bad ?", u"bad \uFFFD"},
        {[] { std::string s; for (int i = 0; i < 300; ++i) s += "\xC3\xA9"; return s; }(), std::string(255, '?'),
         std::u16string(300, u'\u00E9')},
    };
    std::vector<LayerPtr> layers{makeGroupMarker(LayerTypeGroupEnd, cases[1].name)};
    for (const Case& c : cases) layers.push_back(prepared(pvtest::pixelLayer(c.name, 0, 0, 1, 1, {0, 0, 0, 255})));
    layers.push_back(makeGroupMarker(LayerTypeGroupStart, cases[1].name));

    pvtest::ScratchDir dir;
    auto w = write(dir / "u.psd", {1, 1}, {0, 0, 0, 255}, layers);
    ASSERT_TRUE(w.result.ok) << w.result.error;
    const ParsedPSD p = parse(w.file);
    ASSERT_EQ(p.records.size(), layers.size());
    for (size_t i = 0; i < p.records.size(); ++i) {
        const Record& r = p.records[i];
        const LayerElement& layer = *layers[layers.size() - 1 - i];  // the file holds the bottom first
        const Case& c = i == 0 || i + 1 == p.records.size() ? cases[1] : cases[cases.size() - i];
        SCOPED_TRACE(c.pascal);
        EXPECT_EQ(r.name, c.pascal);
        EXPECT_EQ(r.unicodeName, c.units);
        EXPECT_EQ(r.unicodeLength % 4, 0u);
        EXPECT_EQ(r.unicodeLength, 4 + 2 * c.units.size() + r.unicodePadding.size());
        EXPECT_LT(r.unicodePadding.size(), 4u);
        EXPECT_EQ(r.unicodePadding, Bytes(r.unicodePadding.size(), 0));
        EXPECT_EQ(r.size, layerRecordSize(layer));
    }
    EXPECT_EQ(p.records.front().divider.size(), 16u);  // the bounding divider's lsct block follows
    EXPECT_EQ(p.records.back().divider.size(), 24u);
}

TEST(XmpPacket, FillsEveryPlaceholderAndPadsToAnEvenLength) {
    std::tm t{};
    t.tm_year = 2026 - 1900;
    t.tm_mon = 10;
    t.tm_mday = 16;
    t.tm_hour = 7;
    t.tm_min = 5;
    t.tm_sec = 9;
    EXPECT_EQ(buildXmpPacket("XMP_CREATOR|XMP_DATE|XMP_DATE|XMP_TITLE|XMP_WIDTH|XMP_HEIGHT", "16-11-2026-07-05-09.psd",
                             2880, 1800, t),
              "Veltrano Plenavue|2026-11-16T07:05:09|2026-11-16T07:05:09|16-11-2026-07-05-09.psd|2880|1800 ");
    EXPECT_EQ(buildXmpPacket("<w>XMP_WIDTH</w>", "t", 1234, 1, t), "<w>1234</w> ");  // 11 characters: a space added
    EXPECT_EQ(buildXmpPacket("<w>XMP_WIDTH</w>", "t", 12345, 1, t), "<w>12345</w>");
    // Titles stay ASCII and valid inside XML.
    EXPECT_EQ(buildXmpPacket("XMP_TITLE", "R&D <\xC3\xA9>.psd", 1, 1, t), "R&amp;D &lt;?&gt;.psd ");
}

TEST(XmpPacket, OddPacketGainsASpaceInTheFile) {
    pvtest::ScratchDir dir;
    for (const std::string& templ : {std::string("<a>XMP_TITLE</a>"), std::string("<ab>XMP_TITLE</ab>")}) {
        auto w = write(dir / "x.psd", {1, 1}, {0, 0, 0, 0}, {}, templ);
        ASSERT_TRUE(w.result.ok) << w.result.error;
        const ParsedPSD p = parse(w.file);
        const std::string filled = std::regex_replace(templ, std::regex("XMP_TITLE"), "x.psd");
        EXPECT_EQ(p.xmp, filled.size() % 2 ? filled + " " : filled);
        EXPECT_EQ(p.xmp.size() % 2, 0u);
        EXPECT_EQ(p.resourcesLength, p.xmp.size() + 12);
    }
}

TEST(XmpPacket, ShippedTemplateCarriesEveryPlaceholderAndIsASCII) {
    const Bytes templ = pvtest::readFile(std::string(PV_SOURCE_DIR) + "/resources/xmp.dat");
    const std::string text(templ.begin(), templ.end());
    for (const char* key : {"XMP_CREATOR", "XMP_DATE", "XMP_TITLE", "XMP_WIDTH", "XMP_HEIGHT"})
        EXPECT_NE(text.find(key), std::string::npos) << key;
    for (uint8_t b : templ) EXPECT_LT(b, 0x80);
}

// ---------------------------------------------------------------- file names

TEST(FileNaming, DayFirstWithTheFormatsExtension) {
    std::tm t{};
    t.tm_year = 2026 - 1900;
    t.tm_mon = 10;
    t.tm_mday = 16;
    t.tm_hour = 17;
    t.tm_min = 5;
    t.tm_sec = 9;
    EXPECT_EQ(buildFileName(OutputFormat::GroupedPSD, t), "16-11-2026-17-05-09.psd");
    EXPECT_EQ(buildFileName(OutputFormat::UngroupedPSD, t), "16-11-2026-17-05-09.psd");
    std::tm u{};
    u.tm_year = 2027 - 1900;
    u.tm_mon = 1;
    u.tm_mday = 1;
    u.tm_hour = 9;
    u.tm_min = 3;
    u.tm_sec = 7;
    EXPECT_EQ(buildFileName(OutputFormat::PNG, u), "01-02-2027-09-03-07.png");
}

TEST(FileNaming, TakenNamesAreNumberedBeforeTheExtension) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"/out/16-11-2026-17-05-09.psd", "/out/16-11-2026-17-05-09-2.psd"},
        {"/out.d/shot", "/out.d/shot-2"},
        {"/out/.hidden", "/out/.hidden-2"},
        {"/out/a.b.png", "/out/a.b-2.png"},
    };
    for (const auto& [path, second] : cases) {
        EXPECT_EQ(numberedPath(path, 1), path);
        EXPECT_EQ(numberedPath(path, 2), second);
    }
    const std::set<std::string> taken{"/o/x.psd", "/o/x-2.psd", "/o/x-3.psd"};
    EXPECT_EQ(firstFreePath("/o/x.psd", [&](const std::string& p) { return taken.count(p) > 0; }), "/o/x-4.psd");
    EXPECT_EQ(firstFreePath("/o/y.psd", [&](const std::string& p) { return taken.count(p) > 0; }), "/o/y.psd");
}

std::string text(const std::vector<uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

TEST(FileNaming, ANumberedWriteNeverReplacesAFileAndAChosenOneDoes) {
    pvtest::ScratchDir dir;
    const std::string path = dir / "shot.psd";
    std::ofstream(path) << "earlier";
    const auto write = [&](const std::string& text, OnExisting onExisting) {
        return writeFileAtomically(path, [&](AtomicFile& f) { return f.write(text.data(), text.size()); }, onExisting);
    };
    const WriteResult second = write("second", OnExisting::Number);
    ASSERT_TRUE(second.ok) << second.error;
    EXPECT_EQ(second.path, dir / "shot-2.psd");
    EXPECT_EQ(write("third", OnExisting::Number).path, dir / "shot-3.psd");
    EXPECT_EQ(text(pvtest::readFile(path)), "earlier");
    EXPECT_EQ(text(pvtest::readFile(dir / "shot-2.psd")), "second");
    const WriteResult replaced = write("chosen", OnExisting::Replace);
    EXPECT_EQ(replaced.path, path);
    EXPECT_EQ(text(pvtest::readFile(path)), "chosen");
}

TEST(OutputFormatNames, NumbersNamesAndExtensionsAgree) {
    for (int64_t v : {0, 1, 2}) {
        const auto f = outputFormatFromValue(v);
        ASSERT_TRUE(f);
        EXPECT_EQ(outputFormatValue(*f), v);
        EXPECT_EQ(outputFormatFromName(outputFormatName(*f)), f);
        EXPECT_EQ(fileKindOfName("x." + std::string(fileExtension(*f))),
                  isLayered(*f) ? FileKind::LayeredDocument : FileKind::FlatPicture);
    }
    for (int64_t v : {-1, 3, 99}) EXPECT_FALSE(outputFormatFromValue(v));
    EXPECT_FALSE(outputFormatFromName("tiff"));
    EXPECT_EQ(fileKindOfName("/a/B.PNG"), FileKind::FlatPicture);
    EXPECT_FALSE(fileKindOfName("/a/b.jpg"));
    EXPECT_FALSE(fileKindOfName("/a.psd/b"));
}

// ---------------------------------------------------------------- refusals and failures

TEST(PSDWriterRefusals, CanvasBeyondThirtyThousandPixelsIsRefusedBeforeAnyFile) {
    pvtest::ScratchDir dir;
    const std::string path = dir / "big.psd";
    Bytes merged(4, 7);  // far too small, but the size is refused first
    WriteResult r = writePSD(path, {30001, 1}, merged, {}, kTemplate, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.error.find(path), std::string::npos);
    EXPECT_NE(r.error.find("30000"), std::string::npos);
    r = writePSD(path, {1, 40000}, merged, {}, kTemplate, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(dir.entries().empty());
    EXPECT_EQ(merged, Bytes(4, 7));

    // Exactly 30000 is allowed.
    auto w = write(path, {30000, 1}, pvtest::solid(30000, 1, 0, 0, 0, 255), {});
    ASSERT_TRUE(w.result.ok) << w.result.error;
    EXPECT_EQ(parse(w.file).width, 30000u);
}

TEST(PSDWriterRefusals, UnpreparedEntriesEmptyCanvasAndShortCompositeAreRefused) {
    pvtest::ScratchDir dir;
    const std::string path = dir / "bad.psd";
    Bytes merged(16, 0);
    auto raw = pvtest::pixelLayer("raw", 0, 0, 1, 1, {1, 2, 3, 255});
    WriteResult r = writePSD(path, {2, 2}, merged, {raw}, kTemplate, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.error.find("\"raw\" is not prepared"), std::string::npos) << r.error;

    r = writePSD(path, {0, 2}, merged, {}, kTemplate, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.error.find("empty"), std::string::npos) << r.error;

    r = writePSD(path, {3, 2}, merged, {}, kTemplate, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.error.find("needs 24"), std::string::npos) << r.error;
    EXPECT_TRUE(dir.entries().empty());
}

TEST(PSDWriterRefusals, EntriesWhoseChannelDataDisagreeWithTheirRectangleAreRefusedBeforeAnyFile) {
    struct Case {
        const char* what;
        std::function<void(LayerElement&)> change;  // applied to a prepared 4x3 layer
        const char* reason;
    };
    const std::vector<Case> cases{
        {"one pixel wider", [](LayerElement& l) { l.location.width = 5; }, "5x3 rectangle: channel 0 has a row of 4 pixels"},
        {"one row higher", [](LayerElement& l) { l.location.height = 4; }, "4x4 rectangle: channel 0 has rows running past its end"},
        {"one row lower", [](LayerElement& l) { l.location.height = 2; }, "4x2 rectangle: channel 0 has a row of"},
        {"a row count too large", [](LayerElement& l) { l.imageData[3] += 1; }, "channel 0"},
        {"a broken packet", [](LayerElement& l) { l.imageData[8] = 5; }, "channel 0 has a row of"},
        {"an unknown compression", [](LayerElement& l) { l.imageData[1] = 2; }, "unknown compression 2"},
        {"a raw block of the wrong size",
         [](LayerElement& l) {
             l.imageData.assign(4 * 13, 0);
             l.channelSizes = {13, 13, 13, 13};
         },
         "holds 11 raw bytes"},
        {"a rectangle beyond the record", [](LayerElement& l) { l.location.x = 3e9; }, "cannot hold"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        pvtest::ScratchDir dir;
        auto layer = prepared(pvtest::pixelLayer("Notes", 1.5, 0, 4, 3, pvtest::solid(4, 3, 1, 2, 3, 255)));
        c.change(*layer);
        Bytes merged(8 * 8 * 4, 0);
        const WriteResult r = writePSD(dir / "x.psd", {8, 8}, merged, {layer}, kTemplate, nullptr);
        EXPECT_FALSE(r.ok);
        EXPECT_NE(r.error.find("layer \"Notes\""), std::string::npos) << r.error;
        EXPECT_NE(r.error.find(c.reason), std::string::npos) << r.error;
        EXPECT_TRUE(dir.entries().empty());
    }
}

TEST(PSDWriterFailures, MissingFolderAndPathUnderAFileLeaveNothing) {
    pvtest::ScratchDir dir;
    Bytes merged{1, 2, 3, 255};
    WriteResult r = writePSD(dir / "missing/x.psd", {1, 1}, merged, {}, kTemplate, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, "cannot write " + (dir / "missing/x.psd") + ": No such file or directory");
    EXPECT_TRUE(dir.entries().empty());

    r = writePSD("/dev/null/x.psd", {1, 1}, merged, {}, kTemplate, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, "cannot write /dev/null/x.psd: Not a directory");
}

TEST(PSDWriterFailures, ReadOnlyFolderRefusesAnOrdinaryUser) {
    // Root writes anywhere, so the attempt runs as an unprivileged user.
    pvtest::ScratchDir dir;
    const auto folder = dir.path / "ro";
    std::filesystem::create_directory(folder);
    pvtest::writeText(folder / "x.psd", "earlier");
    chmod(dir.path.c_str(), 0755);
    chmod(folder.c_str(), 0555);
    chmod((folder / "x.psd").c_str(), 0644);
    const int code = pvtest::inChildProcess([&] {
        if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return 3;
        Bytes merged{1, 2, 3, 255};
        WriteResult r = writePSD((folder / "x.psd").string(), {1, 1}, merged, {}, kTemplate, nullptr);
        if (r.ok) return 1;
        return r.error == "cannot write " + (folder / "x.psd").string() + ": Permission denied" ? 0 : 2;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(pvtest::readFile(folder / "x.psd"), (Bytes{'e', 'a', 'r', 'l', 'i', 'e', 'r'}));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()), 1);
    chmod(folder.c_str(), 0755);  // so that the scratch folder can be removed by any user
}

TEST(PSDWriterFailures, WriteErrorMidwayKeepsTheEarlierFileAndRemovesTheTemporary) {
    // A file size limit makes the writes fail part way, as a full disk does.
    pvtest::ScratchDir dir;
    const std::string path = dir / "x.psd";
    pvtest::writeText(path, "earlier");
    const int code = pvtest::inChildProcess([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = 1000;
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 3;
        std::vector<LayerPtr> layers{prepared(pvtest::pixelLayer("noise", 0, 0, 64, 64, [] {
            Bytes v(64 * 64 * 4);
            for (size_t i = 0; i < v.size(); ++i) v[i] = static_cast<uint8_t>(i * 7919 % 251);
            for (size_t i = 3; i < v.size(); i += 4) v[i] = 255;
            return v;
        }()))};
        Bytes merged = pvtest::solid(64, 64, 0, 0, 0, 255);
        WriteResult r = writePSD(path, {64, 64}, merged, layers, kTemplate, nullptr);
        if (r.ok) return 1;
        return r.error == "cannot write " + path + ": File too large" ? 0 : 2;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"x.psd"});
    EXPECT_EQ(pvtest::readFile(path), (Bytes{'e', 'a', 'r', 'l', 'i', 'e', 'r'}));
}

TEST(PSDWriterFailures, TargetThatIsAFolderIsNotReplaced) {
    pvtest::ScratchDir dir;
    std::filesystem::create_directory(dir.path / "taken.psd");
    Bytes merged{1, 2, 3, 255};
    WriteResult r = writePSD(dir / "taken.psd", {1, 1}, merged, {}, kTemplate, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, "cannot write " + (dir / "taken.psd") + ": Is a directory");
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"taken.psd"});
}

TEST(AtomicFileTest, SuccessReplacesTheEarlierFileWithOrdinaryPermissions) {
    pvtest::ScratchDir dir;
    const std::string path = dir / "out.bin";
    pvtest::writeText(path, "earlier");
    const mode_t old = umask(022);
    WriteResult r = writeFileAtomically(path, [](AtomicFile& f) { return f.write("new", 3); });
    umask(old);
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(pvtest::readFile(path), (Bytes{'n', 'e', 'w'}));
    struct stat st{};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"out.bin"});
}

TEST(AtomicFileTest, AFailingOrThrowingBodyLeavesNoTrace) {
    pvtest::ScratchDir dir;
    const std::string path = dir / "out.bin";
    pvtest::writeText(path, "earlier");
    std::string temporary;
    WriteResult r = writeFileAtomically(path, [&](AtomicFile& f) {
        temporary = f.temporaryPath();
        f.write("partial", 7);
        throw std::runtime_error("layer \"x\" is too large");
        return true;
    });
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, "cannot write " + path + ": layer \"x\" is too large");
    EXPECT_EQ(temporary.rfind(dir / ".out.bin.", 0), 0u) << temporary;
    EXPECT_FALSE(std::filesystem::exists(temporary));

    r = writeFileAtomically(path, [](AtomicFile& f) {
        f.fail("the composite could not be encoded");
        return f.write("more", 4);
    });
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, "cannot write " + path + ": the composite could not be encoded");
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"out.bin"});
    EXPECT_EQ(pvtest::readFile(path), (Bytes{'e', 'a', 'r', 'l', 'i', 'e', 'r'}));
}

TEST(AtomicFileTest, TargetNameAtTheLengthLimitStillGetsATemporary) {
    pvtest::ScratchDir dir;
    const std::string path = dir / (std::string(251, 'n') + ".psd");
    WriteResult r = writeFileAtomically(path, [](AtomicFile& f) { return f.write("x", 1); });
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(AtomicFileTest, TemporariesCarryTheirProcessInARecognisablePattern) {
    const std::string name = temporaryName("16-11-2026-17-05-09.psd", 4711);
    EXPECT_TRUE(std::regex_match(name, std::regex(R"(\.16-11-2026-17-05-09\.psd\.plenavue-4711-[a-z0-9]{8}\.tmp)")))
        << name;
    EXPECT_EQ(temporaryOwner(name), 4711);
    EXPECT_LE(temporaryName(std::string(255, 'n'), 4194304).size(), 255u);
    for (const char* other : {"x.psd", ".x.psd.k3x9a0qz", "x.psd.plenavue-12-k3x9a0qz.tmp", ".x.psd.plenavue-12-k3x9a0q.tmp",
                              ".x.psd.plenavue--k3x9a0qz.tmp", ".x.psd.plenavue-1a-k3x9a0qz.tmp",
                              ".x.psd.plenavue-12-K3X9A0QZ.tmp", ".x.psd.plenavue-12-k3x9a0qz.tmp~",
                              ".x.psd.plenavue-1234567890-k3x9a0qz.tmp", ".plenavue-12-k3x9a0qz.tmp"})
        EXPECT_EQ(temporaryOwner(other), 0) << other;
}

TEST(AtomicFileTest, TemporariesOfProcessesThatAreGoneAreSweptBeforeEachWrite) {
    pvtest::ScratchDir dir;
    const pid_t gone = fork();
    if (gone == 0) _exit(0);
    ASSERT_GT(gone, 0);
    waitpid(gone, nullptr, 0);
    const std::string stale = temporaryName("a.psd", gone), ours = temporaryName("b.psd", getpid());
    const std::string init = temporaryName("c.psd", 1);
    for (const std::string& name : {stale, ours, init, std::string(".a.psd.k3x9a0qz"), std::string("a.psd")})
        pvtest::writeText(dir.path / name, "x");
    EXPECT_EQ(sweepStaleTemporaries(dir.path.string()), 1);
    EXPECT_FALSE(std::filesystem::exists(dir.path / stale));
    EXPECT_EQ(dir.entries().size(), 4u);

    pvtest::writeText(dir.path / stale, "x");
    WriteResult r = writeFileAtomically(dir / "d.psd", [](AtomicFile& f) { return f.write("d", 1); });
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_FALSE(std::filesystem::exists(dir.path / stale));
    EXPECT_EQ(sweepStaleTemporaries(dir / "missing"), 0);
}

TEST(AtomicFileTest, ASignalHandlerFindsEveryOpenTemporary) {
    pvtest::ScratchDir dir;
    AtomicFile first, second;
    ASSERT_TRUE(first.open(dir / "one.psd"));
    ASSERT_TRUE(second.open(dir / "two.psd"));
    EXPECT_EQ(temporaryOwner(std::filesystem::path(first.temporaryPath()).filename()), getpid());
    EXPECT_EQ(dir.entries().size(), 2u);
    removeOpenTemporaries();
    EXPECT_TRUE(dir.entries().empty());
    // A committed file is no longer the handler's to remove.
    AtomicFile third;
    ASSERT_TRUE(third.open(dir / "three.psd"));
    ASSERT_TRUE(third.write("3", 1) && third.commit());
    removeOpenTemporaries();
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"three.psd"});
}
