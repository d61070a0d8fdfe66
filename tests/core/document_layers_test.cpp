// Layer entries, group markers, un-premultiplication and layer preparation.
#include <gtest/gtest.h>

#include <cmath>

#include <map>
#include <random>

#include "document/group_markers.h"
#include "document/layer_element.h"
#include "document/layer_preparation.h"
#include "document/layer_stack.h"
#include "document/merged_image.h"
#include "document/unpremultiply.h"
#include "document_test_support.h"

using namespace pv;
using Bytes = std::vector<uint8_t>;

// ---------------------------------------------------------------- entries

TEST(LayerElementTest, StartsAsAnEmptyCompressedPixelLayer) {
    LayerElement e;
    EXPECT_EQ(e.type, LayerTypePixel);
    EXPECT_TRUE(e.compress);
    EXPECT_FALSE(e.ready);
    EXPECT_TRUE(e.imageData.empty());
    EXPECT_EQ(e.channelSizes, (std::array<int32_t, 4>{0, 0, 0, 0}));
    EXPECT_EQ(e.description(), "Layer: , Location: {{0, 0}, {0, 0}}");
}

TEST(LayerElementTest, DescribesLayersWithTheirRectangleAndMarkersByName) {
    LayerElement e;
    e.name = "Untitled";
    e.location = {20, 30, 10, 5.5};
    EXPECT_EQ(e.description(), "Layer: Untitled, Location: {{20, 30}, {10, 5.5}}");
    EXPECT_EQ(makeGroupMarker(LayerTypeGroupStart, "Editor")->description(), "Group: Editor");
    EXPECT_EQ(makeGroupMarker(LayerTypeGroupEnd, "Editor")->description(), "Group: Editor");
}

TEST(LayerElementTest, MarkersAreBornReadyWithFourEmptyRawBlocks) {
    for (int32_t type : {LayerTypeGroupStart, LayerTypeGroupEnd}) {
        auto m = makeGroupMarker(type, "Mail");
        EXPECT_EQ(m->type, type);
        EXPECT_EQ(m->name, "Mail");
        EXPECT_TRUE(m->ready);
        EXPECT_TRUE(m->compress);
        EXPECT_EQ(m->location, CanvasRect{});
        EXPECT_EQ(m->imageData, Bytes(8, 0));
        EXPECT_EQ(m->channelSizes, (std::array<int32_t, 4>{2, 2, 2, 2}));
    }
}

// ---------------------------------------------------------------- group markers

namespace {

struct Window {
    std::string name;
    std::string parent;
    uint32_t listPosition = 0;  // place in the window list, 0 in front
    int32_t level = 0;
};

// A window node with a small shot, filed under `app`.
PVWindowElement::Ptr windowNode(const Window& w, const PVWindowElement::Ptr& app) {
    auto node = std::make_shared<PVWindowElement>();
    node->kind = PVElementKindWindow;
    node->name = w.name;
    node->listPosition = w.listPosition;
    node->windowLevel = w.level;
    node->dimensions = {0, 0, 2, 2};
    node->shot = std::make_shared<const Image>(Image::filled(2, 2, 1, 2, 3, 255));
    node->setParent(app);
    app->addChild(node);
    return node;
}

PVWindowElement::Ptr appNode(const std::string& name, uint32_t pid) {
    auto app = std::make_shared<PVWindowElement>();
    app->kind = PVElementKindApplication;
    app->name = name;
    app->eidi = pid;
    return app;
}

std::vector<LayerPtr> assembleNodes(const std::vector<PVWindowElement::Ptr>& nodes, OutputFormat format,
                                    int32_t& depth) {
    return assembleLayerStack(nodes, format, {0, 0, 100, 100}, ScreenMeasures{1, 100}, depth).layers;
}

// The document's own stack assembly over windows of one screen, collected in
// outline order: application by application, each in the order first met.
std::vector<LayerPtr> assemble(const std::vector<Window>& windows, OutputFormat format, int32_t& depth) {
    std::map<std::string, PVWindowElement::Ptr> apps;
    std::vector<std::string> appOrder;
    std::map<std::string, std::vector<PVWindowElement::Ptr>> byApp;
    for (const auto& w : windows) {
        auto& app = apps[w.parent];
        if (!app) {
            app = appNode(w.parent, static_cast<uint32_t>(100 + apps.size()));
            appOrder.push_back(w.parent);
        }
        byApp[w.parent].push_back(windowNode(w, app));
    }
    std::vector<PVWindowElement::Ptr> nodes;
    for (const auto& name : appOrder) nodes.insert(nodes.end(), byApp[name].begin(), byApp[name].end());
    return assembleNodes(nodes, format, depth);
}

std::vector<std::string> shape(const std::vector<LayerPtr>& layers) {
    std::vector<std::string> out;
    for (const auto& l : layers) {
        if (l->type == LayerTypeGroupStart) out.push_back("start(" + l->name + ")");
        else if (l->type == LayerTypeGroupEnd) out.push_back("end(" + l->name + ")");
        else out.push_back(l->name);
    }
    return out;
}

}  // namespace

TEST(GroupMarkers, BracketEachApplicationsRunOfLayers) {
    int32_t depth = 0;
    auto layers = assemble({{"a1", "A", 0}, {"a2", "A", 1}, {"b1", "B", 2}}, OutputFormat::GroupedPSD, depth);
    EXPECT_EQ(shape(layers),
              (std::vector<std::string>{"end(A)", "a1", "a2", "start(A)", "end(B)", "b1", "start(B)"}));
    EXPECT_EQ(depth, 0);
}

TEST(LayerStackOrder, TheScreensStackingNotTheOutlinesOrder) {
    struct Case {
        const char* what;
        std::vector<Window> windows;  // the window list's content, any order
        std::vector<std::string> ungrouped, grouped;
    };
    const Case cases[] = {
        {"applications interleave: A over B over A",
         {{"a1", "A", 0}, {"b1", "B", 1}, {"a2", "A", 2}},
         {"A - a1", "B - b1", "A - a2"},
         {"end(A)", "a1", "a2", "start(A)", "end(B)", "b1", "start(B)"}},
        {"a higher level comes first, and its application's group with it",
         {{"a1", "A", 0}, {"b1", "B", 1}, {"a2", "A", 2}, {"b2", "B", 3, 3}},
         {"B - b2", "A - a1", "B - b1", "A - a2"},
         {"end(B)", "b2", "b1", "start(B)", "end(A)", "a1", "a2", "start(A)"}},
        {"the frontmost window decides, not the first collected",
         {{"a1", "A", 3}, {"b1", "B", 0}, {"c1", "C", 1}, {"a2", "A", 2}},
         {"B - b1", "C - c1", "A - a2", "A - a1"},
         {"end(B)", "b1", "start(B)", "end(C)", "c1", "start(C)", "end(A)", "a2", "a1", "start(A)"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        int32_t depth = 0;
        EXPECT_EQ(shape(assemble(c.windows, OutputFormat::UngroupedPSD, depth)), c.ungrouped);
        EXPECT_EQ(shape(assemble(c.windows, OutputFormat::GroupedPSD, depth)), c.grouped);
        EXPECT_EQ(depth, 0);
    }
}

TEST(LayerStackOrder, AWindowOnTwoScreensIsOneLayerInItsApplicationsOneGroup) {
    // The same application has a node on each screen; the spanning window is
    // reached through both.
    const auto left = appNode("Editor", 311), right = appNode("Editor", 311), other = appNode("Mail", 42);
    const auto across = windowNode({"across", "Editor", 1}, left);
    right->addChild(across);
    const auto onlyRight = windowNode({"notes", "Editor", 0}, right);
    const auto mail = windowNode({"inbox", "Mail", 2}, other);
    int32_t depth = 0;
    const std::vector<PVWindowElement::Ptr> outline{across, across, onlyRight, mail};
    EXPECT_EQ(shape(assembleNodes(outline, OutputFormat::GroupedPSD, depth)),
              (std::vector<std::string>{"end(Editor)", "notes", "across", "start(Editor)", "end(Mail)", "inbox",
                                        "start(Mail)"}));
    EXPECT_EQ(shape(assembleNodes(outline, OutputFormat::UngroupedPSD, depth)),
              (std::vector<std::string>{"Editor - notes", "Editor - across", "Mail - inbox"}));
}

TEST(GroupMarkers, UngroupedFormatChangesNeitherLayersNorDepth) {
    int32_t depth = 3;
    auto layers = assemble({{"a1", "A", 0}, {"b1", "B", 1}}, OutputFormat::UngroupedPSD, depth);
    EXPECT_EQ(shape(layers), (std::vector<std::string>{"A - a1", "B - b1"}));
    EXPECT_EQ(depth, 3);
}

TEST(GroupMarkers, GroupsBeyondEightLevelsLoseBothMarkers) {
    // Ten nested groups opened and closed around one layer.
    std::vector<LayerPtr> layers;
    layers.push_back(std::make_shared<LayerElement>());
    int32_t depth = 0;
    for (int i = 0; i < 10; ++i) insertGroupEnd(layers, depth, OutputFormat::GroupedPSD, "g" + std::to_string(i), 0);
    EXPECT_EQ(depth, 10);
    for (int i = 9; i >= 0; --i)
        insertGroupStart(layers, depth, OutputFormat::GroupedPSD, "g" + std::to_string(i), static_cast<int32_t>(layers.size()));
    EXPECT_EQ(depth, 0);
    // Opened at depths 0..8: nine groups keep both markers; g9 keeps neither.
    int starts = 0, ends = 0;
    for (const auto& l : layers) {
        if (l->type == LayerTypeGroupStart) ++starts;
        if (l->type == LayerTypeGroupEnd) ++ends;
        EXPECT_NE(l->name, "g9");
    }
    EXPECT_EQ(starts, 9);
    EXPECT_EQ(ends, 9);
    EXPECT_EQ(layers.size(), 19u);
}

TEST(GroupMarkers, IndexOutsideTheListThrows) {
    std::vector<LayerPtr> layers(2);
    int32_t depth = 0;
    EXPECT_THROW(insertGroupEnd(layers, depth, OutputFormat::GroupedPSD, "A", 3), std::out_of_range);
    EXPECT_THROW(insertGroupStart(layers, depth, OutputFormat::GroupedPSD, "A", -1), std::out_of_range);
    EXPECT_EQ(layers.size(), 2u);
}

// ---------------------------------------------------------------- un-premultiplication

namespace {

// The rule written out again: single-precision factor and quotient, widened,
// limited to 0..255, truncated.
uint8_t referenceRule(int c, int a) {
    const float f = static_cast<float>(a) / 255.0f;
    const float q = static_cast<float>(c) / f;
    double d = q;
    if (d > 255) d = 255;
    if (d < 0) d = 0;
    return static_cast<uint8_t>(d);
}

Bytes afterUnpremultiply(Bytes px) {
    unpremultiply(px.data(), px.size());
    return px;
}

}  // namespace

TEST(Unpremultiply, KnownValuesIncludingSinglePrecisionShortfalls) {
    EXPECT_EQ(afterUnpremultiply({2, 2, 2, 2}), (Bytes{254, 254, 254, 2}));
    EXPECT_EQ(afterUnpremultiply({3, 3, 3, 9}), (Bytes{84, 84, 84, 9}));
    EXPECT_EQ(afterUnpremultiply({64, 32, 0, 128}), (Bytes{127, 63, 0, 128}));
    EXPECT_EQ(afterUnpremultiply({10, 200, 255, 255}), (Bytes{10, 200, 255, 255}));
    // Colour above alpha (not a valid premultiplied pixel) is limited to 255.
    EXPECT_EQ(afterUnpremultiply({200, 0, 0, 100}), (Bytes{255, 0, 0, 100}));
}

TEST(Unpremultiply, AlphaZeroIsTransparentBlackAndAlphaOneDividesLikeTheRest) {
    EXPECT_EQ(afterUnpremultiply({7, 0, 255, 0}), (Bytes{0, 0, 0, 0}));
    // 1 / (1 / 255) in single precision falls just short of 255, as for a = 2.
    EXPECT_EQ(afterUnpremultiply({1, 0, 1, 1}), (Bytes{254, 0, 254, 1}));
}

TEST(Unpremultiply, EveryAlphaAndColourFollowsTheSinglePrecisionRule) {
    Bytes px;
    for (int a = 1; a < 256; ++a)
        for (int c = 0; c < 256; c += 3) px.insert(px.end(), {uint8_t(c), uint8_t(c + 1 > 255 ? c : c + 1),
                                                               uint8_t(c + 2 > 255 ? c : c + 2), uint8_t(a)});
    const Bytes in = px;
    unpremultiply(px.data(), px.size());
    for (size_t i = 0; i < px.size(); i += 4) {
        const int a = in[i + 3];
        ASSERT_EQ(px[i + 3], a);
        for (int k = 0; k < 3; ++k) ASSERT_EQ(px[i + k], referenceRule(in[i + k], a)) << "a=" << a << " c=" << int(in[i + k]);
    }
    for (int a = 1; a < 256; ++a)
        for (int c = 0; c < 256; ++c)
            ASSERT_EQ(unpremultipliedComponent(uint8_t(c), uint8_t(a)), referenceRule(c, a)) << "a=" << a << " c=" << c;
}

TEST(Unpremultiply, LeavesATrailingPartialPixelAlone) {
    Bytes px{2, 2, 2, 2, 9, 9, 9};
    unpremultiply(px.data(), px.size());
    EXPECT_EQ(px, (Bytes{254, 254, 254, 2, 9, 9, 9}));
}

// ---------------------------------------------------------------- preparation

TEST(LayerPreparation, OnePixelGivesFourSixByteBlocks) {
    auto layer = pvtest::pixelLayer("A", 0, 0, 1, 1, {10, 20, 30, 255});
    prepareLayer(*layer);
    EXPECT_TRUE(layer->ready);
    EXPECT_EQ(layer->channelSizes, (std::array<int32_t, 4>{6, 6, 6, 6}));
    EXPECT_EQ(layer->imageData, (Bytes{0, 1, 0, 2, 0, 10, 0, 1, 0, 2, 0, 20, 0, 1, 0, 2, 0, 30, 0, 1, 0, 2, 0, 255}));
}

TEST(LayerPreparation, OneColourRowsBecomeOneRunPacketEach) {
    for (int w : {3, 64, 127}) {
        const int h = 4;
        auto layer = pvtest::pixelLayer("flat", 0, 0, w, h, pvtest::solid(w, h, 40, 80, 120, 255));
        prepareLayer(*layer);
        for (int c = 0; c < 4; ++c) EXPECT_EQ(layer->channelSizes[c], 2 + 2 * h + 2 * h) << "w=" << w;
        // Red block: code, counts of 2, then (257 - w, 40) per row.
        pvtest::Reader r{layer->imageData};
        EXPECT_EQ(r.u16(), 1);
        for (int y = 0; y < h; ++y) EXPECT_EQ(r.u16(), 2);
        for (int y = 0; y < h; ++y) {
            EXPECT_EQ(r.u8(), static_cast<uint8_t>(257 - w));
            EXPECT_EQ(r.u8(), 40);
        }
    }
}

TEST(LayerPreparation, BlocksDecodeToTheStraightChannels) {
    std::mt19937 rng(7);
    const int w = 37, h = 11;
    Bytes px(static_cast<size_t>(w) * h * 4);
    for (size_t i = 0; i < px.size(); i += 4) {
        const auto a = static_cast<uint8_t>(rng() % 3 == 0 ? 255 : rng() % 256);
        // Premultiplied: colour never above alpha; some flat stretches.
        const bool flat = (i / 4) % w < 10;
        for (int k = 0; k < 3; ++k) px[i + k] = flat ? a / 2 : static_cast<uint8_t>(a ? rng() % (a + 1) : 0);
        px[i + 3] = a;
    }
    Bytes straight = px;
    unpremultiply(straight.data(), straight.size());

    auto layer = pvtest::pixelLayer("noise", 5, 6, w, h, px);
    prepareLayer(*layer);
    ASSERT_TRUE(layer->ready);
    pvtest::Reader r{layer->imageData};
    for (int c = 0; c < 4; ++c) {
        const size_t start = r.pos;
        ASSERT_EQ(r.u16(), 1);
        std::vector<uint16_t> counts;
        for (int y = 0; y < h; ++y) counts.push_back(r.u16());
        for (int y = 0; y < h; ++y) {
            const Bytes row = pvtest::unpackBits(r.take(counts[y]));
            ASSERT_EQ(row.size(), static_cast<size_t>(w));
            for (int x = 0; x < w; ++x) ASSERT_EQ(row[x], straight[(static_cast<size_t>(y) * w + x) * 4 + c]);
        }
        EXPECT_EQ(static_cast<int32_t>(r.pos - start), layer->channelSizes[c]);
    }
    EXPECT_EQ(r.left(), 0u);
}

TEST(LayerPreparation, UncompressedLayersStoreRawPlanes) {
    auto layer = pvtest::pixelLayer("raw", 0, 0, 2, 1, {10, 20, 30, 255, 1, 1, 1, 2});
    layer->compress = false;
    prepareLayer(*layer);
    EXPECT_EQ(layer->channelSizes, (std::array<int32_t, 4>{4, 4, 4, 4}));
    EXPECT_EQ(layer->imageData, (Bytes{0, 0, 10, 127, 0, 0, 20, 127, 0, 0, 30, 127, 0, 0, 255, 2}));
}

TEST(LayerPreparation, LayersWithoutPixelsGetFourEmptyRawBlocks) {
    for (const auto& [w, h] : {std::pair{0, 0}, {0, 3}, {3, 0}}) {
        for (bool compress : {true, false}) {
            auto layer = pvtest::pixelLayer("empty", 2.5, 1, w, h, {});
            layer->compress = compress;
            prepareLayer(*layer);
            EXPECT_TRUE(layer->ready);
            EXPECT_EQ(layer->channelSizes, (std::array<int32_t, 4>{2, 2, 2, 2})) << w << "x" << h;
            EXPECT_EQ(layer->imageData, Bytes(8, 0));
        }
    }
}

TEST(LayerPreparation, RectanglesADocumentCannotHoldAreRefused) {
    for (const CanvasRect at : {CanvasRect{0, 0, -1, 1}, CanvasRect{std::nan(""), 0, 1, 1}, CanvasRect{3e9, 0, 1, 1},
                                CanvasRect{0, 0, kMaxLayerSide + 1, 1}, CanvasRect{0, 2147483647, 1, 1}}) {
        auto layer = pvtest::pixelLayer("far", 0, 0, 1, 1, {1, 2, 3, 255});
        layer->location = at;
        EXPECT_THROW(prepareLayer(*layer), std::runtime_error) << rectToString(at);
        EXPECT_FALSE(layer->ready);
    }
}

TEST(LayerPreparation, TooFewPixelsForTheRectangleThrowsAndLeavesTheLayerUnready) {
    auto layer = pvtest::pixelLayer("short", 0, 0, 4, 4, Bytes(60, 0));
    EXPECT_THROW(prepareLayer(*layer), std::runtime_error);
    EXPECT_FALSE(layer->ready);
    EXPECT_EQ(layer->imageData.size(), 60u);
}

TEST(LayerPreparation, AReadyLayerIsNotPreparedTwice) {
    auto layer = pvtest::pixelLayer("A", 0, 0, 1, 1, {10, 20, 30, 255});
    prepareLayer(*layer);
    const Bytes once = layer->imageData;
    prepareLayer(*layer);
    EXPECT_EQ(layer->imageData, once);
}

// ---------------------------------------------------------------- merged image of a selection

TEST(ComposeLayers, LayersBottomFirstWhereTheyStandSkippingMarkers) {
    // Top of the stack first: a marker, a half-covering grey over a red one, off the canvas on the left.
    const std::vector<LayerPtr> layers{makeGroupMarker(LayerTypeGroupEnd, "G"),
                                       pvtest::pixelLayer("grey", 1, 0, 2, 1, pvtest::solid(2, 1, 50, 50, 50, 128)),
                                       pvtest::pixelLayer("red", -1, 0, 3, 1, pvtest::solid(3, 1, 255, 0, 0, 255))};
    const Image merged = composeLayers(layers, 3, 1);
    // x 0: red; x 1: grey over red; x 2: grey alone.
    EXPECT_EQ(merged.pixels, (Bytes{255, 0, 0, 255, 177, 50, 50, 255, 50, 50, 50, 128}));
}

TEST(ComposeLayers, ManyFaintLayersRoundOnceNotOncePerLayer) {
    // Ten shadows of alpha 5: exactly 45.8 alpha and 9.2 colour; a rounding
    // step per layer would give 50 and 10.
    std::vector<LayerPtr> layers;
    for (int i = 0; i < 10; ++i) layers.push_back(pvtest::pixelLayer("faint", 0, 0, 1, 1, {1, 1, 1, 5}));
    EXPECT_EQ(composeLayers(layers, 1, 1).pixels, (Bytes{9, 9, 9, 46}));
}

