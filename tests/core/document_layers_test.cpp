// The layer stack with its group markers, un-premultiplication, layer
// preparation and the merged image of a selection.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "document/group_markers.h"
#include "document/layer_preparation.h"
#include "document/layer_stack.h"
#include "document/merged_image.h"
#include "document/unpremultiply.h"
#include "document_test_support.h"
#include "tests/support/tree_builders.h"

using namespace pv;
using Bytes = std::vector<uint8_t>;

// ---------------------------------------------------------------- the stack

namespace {

struct Window {
    std::string name, app;
    uint32_t listPosition = 0;  // place in the window list, 0 in front
    int32_t level = 0;
};

PVWindowElement::Ptr windowNode(const Window& w, const PVWindowElement::Ptr& app) {
    auto node = test::addNode(app, PVElementKindWindow, w.name, {0, 0, 2, 2});
    node->listPosition = w.listPosition;
    node->windowLevel = w.level;
    node->shot = std::make_shared<const Image>(Image::filled(2, 2, 1, 2, 3, 255));
    return node;
}

std::vector<std::string> assemble(const std::vector<PVWindowElement::Ptr>& nodes, OutputFormat format) {
    int32_t depth = 0;
    const auto layers = assembleLayerStack(nodes, format, {0, 0, 100, 100}, ScreenMeasures{1, 100}, depth).layers;
    EXPECT_EQ(depth, 0);
    std::vector<std::string> out;
    for (const auto& l : layers)
        out.push_back(l->type == LayerTypeGroupStart ? "start(" + l->name + ")"
                      : l->type == LayerTypeGroupEnd ? "end(" + l->name + ")"
                                                     : l->name);
    return out;
}

// Windows of one screen collected in outline order: application by
// application, each in the order first met. The application nodes live on.
std::vector<PVWindowElement::Ptr> outline(const std::vector<Window>& windows) {
    static std::vector<std::map<std::string, PVWindowElement::Ptr>> keep;
    auto& apps = keep.emplace_back();
    std::vector<std::string> order;
    std::map<std::string, std::vector<PVWindowElement::Ptr>> byApp;
    for (const auto& w : windows) {
        auto& app = apps[w.app];
        if (!app) {
            app = test::makeNode(PVElementKindApplication, w.app, {}, static_cast<uint32_t>(100 + apps.size()));
            order.push_back(w.app);
        }
        byApp[w.app].push_back(windowNode(w, app));
    }
    std::vector<PVWindowElement::Ptr> nodes;
    for (const auto& name : order) nodes.insert(nodes.end(), byApp[name].begin(), byApp[name].end());
    return nodes;
}

}  // namespace

TEST(LayerStackOrder, TheScreensStackingNotTheOutlinesOrder) {
    struct Case {
        const char* what;
        std::vector<Window> windows;  // the window list's content, any order
        std::vector<std::string> ungrouped, grouped;
    };
    const Case cases[] = {
        {"one group per application's run",
         {{"a1", "A", 0}, {"a2", "A", 1}, {"b1", "B", 2}},
         {"A - a1", "A - a2", "B - b1"},
         {"end(A)", "a1", "a2", "start(A)", "end(B)", "b1", "start(B)"}},
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
        EXPECT_EQ(assemble(outline(c.windows), OutputFormat::UngroupedPSD), c.ungrouped);
        EXPECT_EQ(assemble(outline(c.windows), OutputFormat::GroupedPSD), c.grouped);
    }
}

TEST(LayerStackOrder, AWindowOnTwoScreensIsOneLayerInItsApplicationsOneGroup) {
    // The same application has a node on each screen; the spanning window is reached through both.
    const auto left = test::makeNode(PVElementKindApplication, "Editor", {}, 311);
    const auto right = test::makeNode(PVElementKindApplication, "Editor", {}, 311);
    const auto across = windowNode({"across", "Editor", 1}, left);
    right->addChild(across);
    const auto notes = windowNode({"notes", "Editor", 0}, right);
    const auto mailApp = test::makeNode(PVElementKindApplication, "Mail", {}, 42);
    const auto mail = windowNode({"inbox", "Mail", 2}, mailApp);
    const std::vector<PVWindowElement::Ptr> nodes{across, across, notes, mail};
    EXPECT_EQ(assemble(nodes, OutputFormat::GroupedPSD),
              (std::vector<std::string>{"end(Editor)", "notes", "across", "start(Editor)", "end(Mail)", "inbox",
                                        "start(Mail)"}));
    EXPECT_EQ(assemble(nodes, OutputFormat::UngroupedPSD),
              (std::vector<std::string>{"Editor - notes", "Editor - across", "Mail - inbox"}));
}

TEST(GroupMarkers, GroupsBeyondEightLevelsLoseBothMarkersAndUngroupedAddsNone) {
    // Ten nested groups opened and closed around one layer.
    std::vector<LayerPtr> layers{std::make_shared<LayerElement>()};
    int32_t depth = 0;
    for (int i = 0; i < 10; ++i) insertGroupEnd(layers, depth, OutputFormat::GroupedPSD, "g" + std::to_string(i), 0);
    EXPECT_EQ(depth, 10);
    for (int i = 9; i >= 0; --i)
        insertGroupStart(layers, depth, OutputFormat::GroupedPSD, "g" + std::to_string(i),
                         static_cast<int32_t>(layers.size()));
    EXPECT_EQ(depth, 0);
    // Opened at depths 0..8: nine groups keep both markers; g9 keeps neither.
    EXPECT_EQ(layers.size(), 19u);
    EXPECT_EQ(std::count_if(layers.begin(), layers.end(), [](auto& l) { return l->type == LayerTypeGroupStart; }), 9);
    EXPECT_EQ(std::count_if(layers.begin(), layers.end(), [](auto& l) { return l->name == "g9"; }), 0);

    insertGroupEnd(layers, depth, OutputFormat::UngroupedPSD, "A", 0);
    EXPECT_EQ(layers.size(), 19u);
    EXPECT_EQ(depth, 0);
    EXPECT_THROW(insertGroupEnd(layers, depth, OutputFormat::GroupedPSD, "A", 20), std::out_of_range);
    EXPECT_THROW(insertGroupStart(layers, depth, OutputFormat::GroupedPSD, "A", -1), std::out_of_range);
}

// ---------------------------------------------------------------- un-premultiplication

TEST(Unpremultiply, SinglePrecisionQuotientsTruncatedAndLimited) {
    struct Case {
        Bytes in, out;
    };
    const Case cases[] = {
        {{2, 2, 2, 2}, {254, 254, 254, 2}},  // 2 / (2/255) falls just short of 255 in single precision
        {{1, 0, 1, 1}, {254, 0, 254, 1}},
        {{3, 3, 3, 9}, {84, 84, 84, 9}},
        {{64, 32, 0, 128}, {127, 63, 0, 128}},
        {{10, 200, 255, 255}, {10, 200, 255, 255}},
        {{200, 0, 0, 100}, {255, 0, 0, 100}},                  // colour above alpha is limited to 255
        {{7, 0, 255, 0}, {0, 0, 0, 0}},                        // alpha zero: transparent black
        {{2, 2, 2, 2, 9, 9, 9}, {254, 254, 254, 2, 9, 9, 9}},  // a trailing partial pixel is left alone
    };
    for (const Case& c : cases) {
        Bytes px = c.in;
        unpremultiply(px.data(), px.size());
        EXPECT_EQ(px, c.out);
        EXPECT_EQ(unpremultipliedComponent(c.in[0], c.in[3]), c.out[0]);
    }
}

// ---------------------------------------------------------------- preparation

TEST(LayerPreparation, BlocksDecodeToTheStraightChannelsOnce) {
    std::mt19937 rng(7);
    const int w = 37, h = 11;
    Bytes px(static_cast<size_t>(w) * h * 4);
    for (size_t i = 0; i < px.size(); i += 4) {
        const auto a = static_cast<uint8_t>(rng() % 3 == 0 ? 255 : rng() % 256);
        const bool flat = (i / 4) % w < 10;  // premultiplied, with some flat stretches
        for (int k = 0; k < 3; ++k) px[i + k] = flat ? a / 2 : static_cast<uint8_t>(a ? rng() % (a + 1) : 0);
        px[i + 3] = a;
    }
    Bytes straight = px;
    unpremultiply(straight.data(), straight.size());

    auto layer = pvtest::pixelLayer("noise", 5, 6, w, h, px);
    prepareLayer(*layer);
    prepareLayer(*layer);  // a ready layer is not prepared twice
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

TEST(LayerPreparation, UncompressedAndEmptyLayersStoreRawPlanes) {
    auto layer = pvtest::pixelLayer("raw", 0, 0, 2, 1, {10, 20, 30, 255, 1, 1, 1, 2});
    layer->compress = false;
    prepareLayer(*layer);
    EXPECT_EQ(layer->channelSizes, (std::array<int32_t, 4>{4, 4, 4, 4}));
    EXPECT_EQ(layer->imageData, (Bytes{0, 0, 10, 127, 0, 0, 20, 127, 0, 0, 30, 127, 0, 0, 255, 2}));
    for (const auto& [w, h, compress] : {std::tuple{0, 3, true}, {3, 0, false}}) {
        auto empty = pvtest::pixelLayer("empty", 2.5, 1, w, h, {});
        empty->compress = compress;
        prepareLayer(*empty);
        EXPECT_TRUE(empty->ready);
        EXPECT_EQ(empty->channelSizes, (std::array<int32_t, 4>{2, 2, 2, 2})) << w << "x" << h;
        EXPECT_EQ(empty->imageData, Bytes(8, 0));
    }
}

TEST(LayerPreparation, WhatADocumentCannotHoldIsRefusedAndLeftUnready) {
    for (const CanvasRect at : {CanvasRect{0, 0, -1, 1}, CanvasRect{std::nan(""), 0, 1, 1}, CanvasRect{3e9, 0, 1, 1},
                                CanvasRect{0, 0, kMaxLayerSide + 1, 1}, CanvasRect{0, 2147483647, 1, 1},
                                CanvasRect{0, 0, 4, 4} /* more than the pixels held */}) {
        auto layer = pvtest::pixelLayer("far", 0, 0, 1, 1, {1, 2, 3, 255});
        layer->location = at;
        EXPECT_THROW(prepareLayer(*layer), std::runtime_error) << rectToString(at);
        EXPECT_FALSE(layer->ready);
        EXPECT_EQ(layer->imageData, (Bytes{1, 2, 3, 255}));
    }
}

// ---------------------------------------------------------------- merged image of a selection

TEST(ComposeLayers, LayersBottomFirstWhereTheyStandSkippingMarkersRoundingOnce) {
    // Top of the stack first: a marker, a half-covering grey over a red one, off the canvas on the left.
    const std::vector<LayerPtr> layers{makeGroupMarker(LayerTypeGroupEnd, "G"),
                                       pvtest::pixelLayer("grey", 1, 0, 2, 1, pvtest::solid(2, 1, 50, 50, 50, 128)),
                                       pvtest::pixelLayer("red", -1, 0, 3, 1, pvtest::solid(3, 1, 255, 0, 0, 255))};
    // x 0: red; x 1: grey over red; x 2: grey alone.
    EXPECT_EQ(composeLayers(layers, 3, 1).pixels, (Bytes{255, 0, 0, 255, 177, 50, 50, 255, 50, 50, 50, 128}));
    // Ten shadows of alpha 5: exactly 45.8 alpha and 9.2 colour; a rounding
    // step per layer would give 50 and 10.
    const std::vector<LayerPtr> faint(10, pvtest::pixelLayer("faint", 0, 0, 1, 1, {1, 1, 1, 5}));
    EXPECT_EQ(composeLayers(faint, 1, 1).pixels, (Bytes{9, 9, 9, 46}));
}
