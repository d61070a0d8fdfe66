// Our PSD files as a reader we did not write sees them: psd-tools, through
// tests/tools/psd_dump.py, run with the system's Python.
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "document/group_markers.h"
#include "document/layer_preparation.h"
#include "document/psd_writer.h"
#include "document/unpremultiply.h"
#include "document_test_support.h"
#include "tests/support/psd_tools.h"

using namespace pv;
using Bytes = std::vector<uint8_t>;
using nlohmann::json;

namespace {

Bytes straight(Bytes premultiplied) {
    unpremultiply(premultiplied.data(), premultiplied.size());
    return premultiplied;
}

struct Source {
    std::string name;
    std::string group;  // empty: outside any group
    Rect at;
    Bytes pixels;       // premultiplied
};

// Pixels with a range of alpha values, fully transparent ones included.
Bytes translucent(int w, int h, uint8_t seed) {
    Bytes v;
    for (int i = 0; i < w * h; ++i) {
        const auto a = static_cast<uint8_t>((i * 53 + seed * 31) % 256);
        v.insert(v.end(), {uint8_t(a * 3 / 4), uint8_t(a / 3), uint8_t(seed % (a + 1)), a});
    }
    return v;
}

}  // namespace

TEST(PSDReadBack, PsdToolsSeesGroupsLayersPixelsAndComposite) {
    if (!test::psdToolsAvailable()) GTEST_SKIP() << "/usr/bin/python3 cannot import psd_tools";

    const int W = 12, H = 9;
    // Top of the stack first: a loose layer, then Editor's two windows, then Mail's one.
    const std::vector<Source> sources{
        {"Overlay", "", {0, 0, 2, 2}, pvtest::solid(2, 2, 0, 128, 0, 128)},
        {"Untitled", "Editor", {1, 1, 4, 3}, translucent(4, 3, 7)},
        {"Caf\xC3\xA9 notes \xE2\x80\x94 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80", "Editor", {3, 2, 5, 4},
         pvtest::solid(5, 4, 200, 100, 50, 255)},
        {"Inbox", "Mail \xE2\x9C\x89", {6, 4, 6, 5}, translucent(6, 5, 99)},
    };
    std::vector<LayerPtr> layers;
    int32_t depth = 0;
    const std::string* current = nullptr;
    for (const auto& s : sources) {
        auto layer = pvtest::pixelLayer(s.name, s.at.x, s.at.y, static_cast<int>(s.at.width),
                                        static_cast<int>(s.at.height), s.pixels);
        layers.push_back(layer);
        if (s.group.empty()) continue;
        if (!current || *current != s.group) {
            if (current) insertGroupStart(layers, depth, OutputFormat::GroupedPSD, *current, static_cast<int32_t>(layers.size()) - 1);
            insertGroupEnd(layers, depth, OutputFormat::GroupedPSD, s.group, static_cast<int32_t>(layers.size()) - 1);
            current = &s.group;
        }
    }
    insertGroupStart(layers, depth, OutputFormat::GroupedPSD, *current, static_cast<int32_t>(layers.size()));
    ASSERT_EQ(layers.size(), 8u);
    for (auto& l : layers)
        if (l->type == LayerTypePixel) prepareLayer(*l);

    Bytes composite = translucent(W, H, 3);
    Bytes expectedComposite = composite;  // the merged image is stored matted over white
    matteOverWhite(expectedComposite.data(), expectedComposite.size());

    pvtest::ScratchDir dir;
    const std::string path = dir / "grouped.psd";
    WriteResult r = writePSD(path, {W, H}, composite, layers, "<x>XMP_TITLE XMP_WIDTH XMP_HEIGHT</x>", nullptr);
    ASSERT_TRUE(r.ok) << r.error;

    json doc;
    ASSERT_NO_THROW(doc = test::psdToolsDump(path, true));
    EXPECT_EQ(doc["width"], W);
    EXPECT_EQ(doc["height"], H);
    EXPECT_EQ(doc["channels"], 4);
    EXPECT_EQ(doc["depth"], 8);
    EXPECT_EQ(doc["color_mode"], 3);
    EXPECT_EQ(doc["layer_count"], -8);
    EXPECT_EQ(doc["xmp"], "<x>grouped.psd 12 9</x> ");  // padded to an even length

    // psd-tools lists the stack bottom first: Mail, Editor, then Overlay.
    const json& top = doc["layers"];
    ASSERT_EQ(top.size(), 3u) << top.dump(1);
    EXPECT_EQ(top[0]["kind"], "group");
    EXPECT_EQ(top[0]["name"], "Mail \xE2\x9C\x89");
    EXPECT_EQ(top[0]["pascal_name"], "Mail ?");
    EXPECT_EQ(top[0]["blend_mode"], "pass_through");
    EXPECT_EQ(top[1]["kind"], "group");
    EXPECT_EQ(top[1]["name"], "Editor");
    EXPECT_EQ(top[2]["kind"], "pixel");
    EXPECT_EQ(top[2]["name"], "Overlay");

    struct Expect {
        const json& node;
        const Source& source;
    };
    ASSERT_EQ(top[0]["children"].size(), 1u);
    ASSERT_EQ(top[1]["children"].size(), 2u);
    const std::vector<Expect> expectations{{top[0]["children"][0], sources[3]},
                                           {top[1]["children"][0], sources[2]},
                                           {top[1]["children"][1], sources[1]},
                                           {top[2], sources[0]}};
    for (const auto& e : expectations) {
        SCOPED_TRACE(e.source.name);
        EXPECT_EQ(e.node["kind"], "pixel");
        EXPECT_EQ(e.node["name"], e.source.name);  // the Unicode name block, exactly
        EXPECT_EQ(e.node["pascal_name"], psdLayerName(e.source.name));
        EXPECT_TRUE(e.node["visible"].get<bool>());
        EXPECT_EQ(e.node["opacity"], 255);
        EXPECT_EQ(e.node["left"], e.source.at.x);
        EXPECT_EQ(e.node["top"], e.source.at.y);
        EXPECT_EQ(e.node["right"], e.source.at.x + e.source.at.width);
        EXPECT_EQ(e.node["bottom"], e.source.at.y + e.source.at.height);
        EXPECT_EQ(test::fromBase64(e.node["pixels"]["rgba"].get<std::string>()), straight(e.source.pixels));
    }
    EXPECT_EQ(top[1]["children"][0]["pascal_name"], "Caf? notes ? ?? ?");

    EXPECT_EQ(test::fromBase64(doc["merged"]["rgba"].get<std::string>()), expectedComposite);
}

TEST(PSDReadBack, FractionalAndEmptyLayersOpenWithTheirRecordedEdges) {
    if (!test::psdToolsAvailable()) GTEST_SKIP() << "/usr/bin/python3 cannot import psd_tools";
    struct Case {
        Rect at;  // the size is what the layer holds
        int32_t left, top;
    };
    // Top of the stack first; psd-tools lists them bottom first.
    const std::vector<Case> cases{{{10.5, 2.5, 7, 5}, 11, 3},  {{-0.5, 3.4999, 3, 2}, -1, 3}, {{0.5, 0.5, 1, 1}, 1, 1},
                                  {{1.25, 1, 0, 3}, 1, 1},     {{2, 2.75, 3, 0}, 2, 3}};
    std::vector<LayerPtr> layers;
    for (const Case& c : cases) {
        const int w = static_cast<int>(c.at.width), h = static_cast<int>(c.at.height);
        layers.push_back(pvtest::pixelLayer("L" + std::to_string(layers.size()), c.at.x, c.at.y, w, h,
                                            translucent(w, h, static_cast<uint8_t>(layers.size()))));
        prepareLayer(*layers.back());
    }
    Bytes composite(20 * 10 * 4, 0);
    pvtest::ScratchDir dir;
    const WriteResult r = writePSD(dir / "edges.psd", {20, 10}, composite, layers, "<x/>", nullptr);
    ASSERT_TRUE(r.ok) << r.error;

    json doc;
    ASSERT_NO_THROW(doc = test::psdToolsDump(dir / "edges.psd", true));
    ASSERT_EQ(doc["layers"].size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[cases.size() - 1 - i];
        const json& node = doc["layers"][i];
        SCOPED_TRACE(node.dump());
        const int w = static_cast<int>(c.at.width), h = static_cast<int>(c.at.height);
        EXPECT_EQ(node["left"], c.left);
        EXPECT_EQ(node["top"], c.top);
        EXPECT_EQ(node["right"], c.left + w);
        EXPECT_EQ(node["bottom"], c.top + h);
        if (w > 0 && h > 0) {
            EXPECT_EQ(test::fromBase64(node["pixels"]["rgba"].get<std::string>()),
                      straight(translucent(w, h, static_cast<uint8_t>(cases.size() - 1 - i))));
        }
    }
}
