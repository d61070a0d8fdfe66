// Our PSD files as a reader we did not write sees them: psd-tools, through
// tests/tools/psd_dump.py, run with the system's Python.
#include <gtest/gtest.h>

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

// Pixels with a range of alpha values, fully transparent ones included.
Bytes translucent(int w, int h, uint8_t seed) {
    Bytes v;
    for (int i = 0; i < w * h; ++i) {
        const auto a = static_cast<uint8_t>((i * 53 + seed * 31) % 256);
        v.insert(v.end(), {uint8_t(a * 3 / 4), uint8_t(a / 3), uint8_t(seed % (a + 1)), a});
    }
    return v;
}

Bytes straight(Bytes premultiplied) {
    unpremultiply(premultiplied.data(), premultiplied.size());
    return premultiplied;
}

}  // namespace

TEST(PSDReadBack, PsdToolsSeesGroupsLayersEdgesPixelsAndComposite) {
    if (!test::psdToolsAvailable()) GTEST_SKIP() << "/usr/bin/python3 cannot import psd_tools";
    struct Source {
        std::string name;
        CanvasRect at;  // the size is what the layer holds
        int left, top;  // as a reader finds them
    };
    const std::string cafe = "Caf\xC3\xA9 notes \xE2\x80\x94 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80";
    const std::string mail = "Mail \xE2\x9C\x89";
    // Bottom of the stack first, as psd-tools lists them: Mail's window, Editor's two, then loose layers.
    const std::vector<Source> sources{
        {"Inbox", {6, 4, 6, 5}, 6, 4},    {cafe, {3, 2, 5, 4}, 3, 2},         {"Untitled", {1, 1, 4, 3}, 1, 1},
        {"Overlay", {0, 0, 2, 2}, 0, 0},  {"half", {10.5, 2.5, 7, 5}, 11, 3}, {"below", {-0.5, 3.4999, 3, 2}, -1, 3},
        {"empty", {1.25, 1, 0, 3}, 1, 1},
    };
    std::vector<LayerPtr> layers;  // top of the stack first
    for (size_t i = 0; i < sources.size(); ++i) {
        const Source& s = sources[i];
        auto layer = pvtest::pixelLayer(s.name, 0, 0, int(s.at.width), int(s.at.height),
                                        translucent(int(s.at.width), int(s.at.height), uint8_t(i)));
        layer->location = s.at;
        prepareLayer(*layer);
        layers.insert(layers.begin(), layer);
    }
    // Groups around Mail's and Editor's windows.
    layers.insert(layers.begin() + 4, makeGroupMarker(LayerTypeGroupEnd, "Editor"));
    layers.insert(layers.begin() + 7, makeGroupMarker(LayerTypeGroupStart, "Editor"));
    layers.insert(layers.begin() + 8, makeGroupMarker(LayerTypeGroupEnd, mail));
    layers.push_back(makeGroupMarker(LayerTypeGroupStart, mail));

    const int W = 20, H = 10;
    Bytes composite = translucent(W, H, 3);
    Bytes expectedComposite = composite;  // the merged image is stored matted over white
    matteOverWhite(expectedComposite.data(), expectedComposite.size());
    pvtest::ScratchDir dir;
    const WriteResult r =
        writePSD(dir / "grouped.psd", {W, H}, composite, layers, "<x>XMP_TITLE XMP_WIDTH XMP_HEIGHT</x>", nullptr);
    ASSERT_TRUE(r.ok) << r.error;

    json doc;
    ASSERT_NO_THROW(doc = test::psdToolsDump(dir / "grouped.psd", true));
    EXPECT_EQ(std::make_tuple(doc["width"], doc["height"], doc["channels"], doc["depth"], doc["color_mode"]),
              std::make_tuple(json(W), json(H), json(4), json(8), json(3)));
    EXPECT_EQ(doc["layer_count"], -11);
    EXPECT_EQ(doc["xmp"], "<x>grouped.psd 20 10</x>");
    const json& top = doc["layers"];
    ASSERT_EQ(top.size(), 6u) << top.dump(1);
    EXPECT_EQ(std::make_tuple(top[0]["kind"], top[0]["name"], top[0]["pascal_name"], top[0]["blend_mode"]),
              std::make_tuple(json("group"), json(mail), json("Mail ?"), json("pass_through")));
    EXPECT_EQ(std::make_tuple(top[1]["kind"], top[1]["name"]), std::make_tuple(json("group"), json("Editor")));
    ASSERT_EQ(top[0]["children"].size(), 1u);
    ASSERT_EQ(top[1]["children"].size(), 2u);
    const std::vector<json> nodes{
        top[0]["children"][0], top[1]["children"][0], top[1]["children"][1], top[2], top[3], top[4], top[5]};
    for (size_t i = 0; i < sources.size(); ++i) {
        const Source& s = sources[i];
        const json& node = nodes[i];
        SCOPED_TRACE(s.name);
        EXPECT_EQ(node["kind"], "pixel");
        EXPECT_EQ(node["name"], s.name);  // the Unicode name block, exactly
        EXPECT_EQ(node["pascal_name"], psdLayerName(s.name));
        EXPECT_TRUE(node["visible"].get<bool>());
        EXPECT_EQ(node["opacity"], 255);
        EXPECT_EQ(
            std::make_tuple(node["left"], node["top"], node["right"], node["bottom"]),
            std::make_tuple(json(s.left), json(s.top), json(s.left + int(s.at.width)), json(s.top + int(s.at.height))));
        if (s.at.width > 0 && s.at.height > 0) {
            EXPECT_EQ(test::fromBase64(node["pixels"]["rgba"].get<std::string>()),
                      straight(translucent(int(s.at.width), int(s.at.height), uint8_t(i))));
        }
    }
    EXPECT_EQ(nodes[1]["pascal_name"], "Caf? notes ? ?? ?");
    EXPECT_EQ(test::fromBase64(doc["merged"]["rgba"].get<std::string>()), expectedComposite);
}
