// PNG files to and from premultiplied pictures, and the drop shadow.
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "platform/drop_shadow.h"
#include "platform/png_io.h"
#include "tests/core/document_test_support.h"

namespace pv {
namespace {

// A PNG written with libpng directly, as other programs make them: any colour
// type and depth, optionally with a palette, a transparency chunk or interlacing.
struct RawPng {
    int width = 0;
    int height = 0;
    int colorType = PNG_COLOR_TYPE_GRAY;
    int bitDepth = 8;
    bool interlaced = false;
    std::vector<uint8_t> rows;  // packed rows as the file stores them (16-bit samples big-endian)
    std::vector<png_color> palette;
    std::vector<uint8_t> paletteAlpha;
};

void writeRawPng(const std::string& path, const RawPng& raw) {
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, static_cast<png_uint_32>(raw.width), static_cast<png_uint_32>(raw.height), raw.bitDepth,
                 raw.colorType, raw.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (!raw.palette.empty()) png_set_PLTE(png, info, raw.palette.data(), static_cast<int>(raw.palette.size()));
    if (!raw.paletteAlpha.empty())
        png_set_tRNS(png, info, raw.paletteAlpha.data(), static_cast<int>(raw.paletteAlpha.size()), nullptr);
    png_write_info(png, info);
    const size_t stride = raw.rows.size() / static_cast<size_t>(raw.height);
    std::vector<png_bytep> rows;
    for (int y = 0; y < raw.height; ++y) rows.push_back(const_cast<uint8_t*>(raw.rows.data()) + y * stride);
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

using Px = std::vector<int>;

Px pixel(const Image& image, int x, int y) {
    const uint8_t* p = image.row(y) + static_cast<size_t>(x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

TEST(Png, EveryPremultipliedValueSurvivesTheRoundTripAndFilesHoldStraightAlpha) {
    // Each colour value c <= a for every alpha a: 33,152 pixels, 128 rows of 259.
    Image image(259, 128);
    size_t i = 0;
    for (int a = 0; a < 256; ++a) {
        for (int c = 0; c <= a; ++c, i += 4) {
            image.pixels[i] = static_cast<uint8_t>(c);
            image.pixels[i + 1] = static_cast<uint8_t>(a - c);
            image.pixels[i + 2] = static_cast<uint8_t>(c / 2);
            image.pixels[i + 3] = static_cast<uint8_t>(a);
        }
    }
    std::vector<uint8_t> file = encodePNG(image);
    EXPECT_EQ(readPNGData(file.data(), file.size(), nullptr)->pixels, image.pixels);

    // Read as stored by libpng itself: half transparent colours doubled,
    // nothing visible stored as transparent black.
    Image straight(3, 1);
    straight.pixels = {64, 32, 0, 128, 90, 40, 10, 0, 200, 100, 50, 255};
    file = encodePNG(straight);
    png_image stored{};
    stored.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&stored, file.data(), file.size()));
    EXPECT_EQ(std::tie(stored.format, stored.width), std::make_tuple(png_uint_32(PNG_FORMAT_RGBA), png_uint_32(3)));
    std::vector<uint8_t> bytes(PNG_IMAGE_SIZE(stored));
    ASSERT_TRUE(png_image_finish_read(&stored, nullptr, bytes.data(), 0, nullptr));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{128, 64, 0, 128, 0, 0, 0, 0, 200, 100, 50, 255}));
    EXPECT_TRUE(encodePNG(Image()).empty());
}

TEST(Png, OtherProgramsFilesBecomePremultipliedRgbaOrAreRefusedWithAReason) {
    // 16 bits, grey and alpha, 9x9 so that every interlace pass has pixels; grey
    // rises along x, alpha along y. Low bytes of 0xF0 make rounding differ from
    // dropping them.
    RawPng grey16{9, 9, PNG_COLOR_TYPE_GRAY_ALPHA, 16, true, {}, {}, {}};
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x)
            for (int v : {x * 0x1000 + 0xF0, y == 8 ? 0xFFFF : y * 0x1000 + 0xF0})
                grey16.rows.insert(grey16.rows.end(), {uint8_t(v >> 8), uint8_t(v & 0xFF)});
    struct Case {
        const char* what;
        RawPng raw;
        std::vector<std::tuple<int, int, Px>> expected;  // x, y, pixel
    };
    const Case cases[] = {
        {"grey",
         {2, 2, PNG_COLOR_TYPE_GRAY, 8, false, {0, 128, 255, 7}, {}, {}},
         {{1, 0, {128, 128, 128, 255}}, {1, 1, {7, 7, 7, 255}}}},
        // Two bits per pixel: entries 0 (clear), 1 (half-transparent red), 2 (opaque blue).
        {"palette with transparency",
         {3, 1, PNG_COLOR_TYPE_PALETTE, 2, false, {0b00011000}, {{9, 9, 9}, {255, 0, 0}, {0, 0, 255}}, {0, 128}},
         {{0, 0, {0, 0, 0, 0}}, {1, 0, {128, 0, 0, 128}}, {2, 0, {0, 0, 255, 255}}}},
        // Opaque bottom row: grey 0x50F0 / 257 = 80.6, rounded to 81 (not 80).
        // Alpha 0x30F0 / 257 = 48.7 gives 49; grey 0x40F0 gives 65, 65 * 49 / 255 = 12.49.
        {"16-bit interlaced grey with alpha",
         grey16,
         {{5, 8, {81, 81, 81, 255}}, {4, 3, {12, 12, 12, 49}}, {0, 8, {1, 1, 1, 255}}, {8, 0, {1, 1, 1, 1}}}},
    };
    pvtest::ScratchDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        writeRawPng(dir / "other.png", c.raw);
        std::string error;
        auto image = readPNG(dir / "other.png", &error);
        ASSERT_TRUE(image) << error;
        ASSERT_EQ(std::tie(image->width, image->height), std::tie(c.raw.width, c.raw.height));
        for (const auto& [x, y, px] : c.expected) EXPECT_EQ(pixel(*image, x, y), px) << x << "," << y;
    }

    // Grey rows of one byte per pixel: a 30001-pixel row costs 30 KB, not 120.
    writeRawPng(dir / "wide.png", RawPng{kMaxPictureSide + 1,
                                         1,
                                         PNG_COLOR_TYPE_GRAY,
                                         8,
                                         false,
                                         std::vector<uint8_t>(kMaxPictureSide + 1, 7),
                                         {},
                                         {}});
    pvtest::writeText(dir.path / "junk.png", "not a png");
    const std::vector<uint8_t> small = encodePNG(Image::filled(10, 10, 1, 2, 3, 255));
    EXPECT_TRUE(readPNGData(small.data(), small.size(), nullptr, 100));
    using Read = std::function<std::optional<Image>(std::string*)>;
    for (const auto& [read, reason] : std::vector<std::pair<Read, std::string>>{
             {[&](std::string* e) { return readPNG("/no/such/file.png", e); }, "No such file"},
             {[&](std::string* e) { return readPNG(dir / "junk.png", e); }, ""},
             {[&](std::string* e) { return readPNG(dir / "wide.png", e); }, "too large (30001x1 pixels)"},
             {[&](std::string* e) { return readPNGData(small.data(), small.size(), e, 99); },
              "too large (10x10 pixels)"},
             {[&](std::string* e) { return readPNGData(small.data(), 0, e); }, ""},
             {[&](std::string* e) { return readPNGData(small.data(), small.size() / 2, e); }, ""}}) {  // cut short
        std::string error;
        EXPECT_FALSE(read(&error));
        EXPECT_FALSE(read(nullptr));  // a caller may not want the reason
        EXPECT_NE(error.find(reason), std::string::npos) << error;
        EXPECT_FALSE(error.empty());
    }
}

// The shadow of opaque windows at scales 1 and 2: margins twice as deep below
// as above, the window unchanged, the shadow symmetric, semi-transparent,
// darkest below the window and clear at the canvas edges.
TEST(DropShadow, MarginsAndShapeAroundOpaqueWindows) {
    struct Case {
        int width, height;
        double scale;
        int left, top, bottom;
    };
    for (const Case& c : {Case{100, 60, 1.0, 24, 16, 32}, Case{160, 80, 2.0, 48, 32, 64}}) {
        SCOPED_TRACE(c.scale);
        const auto m = dropShadowMargins(c.scale);
        EXPECT_EQ(std::vector<int>({m.left, m.right, m.top, m.bottom}),
                  std::vector<int>({c.left, c.left, c.top, c.bottom}));
        const Image out = addDropShadow(Image::filled(c.width, c.height, 0, 200, 0, 255), c.scale);
        ASSERT_EQ(std::tie(out.width, out.height), std::make_tuple(c.width + 2 * c.left, c.height + c.top + c.bottom));
        for (int y = 0; y < c.height; y += 7)
            for (int x = 0; x < c.width; x += 9) ASSERT_EQ(pixel(out, c.left + x, c.top + y), (Px{0, 200, 0, 255}));
        const auto alphaAt = [&](int x, int y) { return pixel(out, x, y)[3]; };
        for (int y = 0; y < out.height; y += 5)
            for (int x = 0; x < c.left; x += 3)
                ASSERT_EQ(alphaAt(x, y), alphaAt(out.width - 1 - x, y)) << x << "," << y;
        // Down the middle, outside the window: black, darkest below it, never a solid band.
        const int mid = out.width / 2;
        int darkest = 0, darkestY = -1;
        for (int y = 0; y < out.height; ++y) {
            if (y >= c.top && y < c.top + c.height) continue;
            if (alphaAt(mid, y) > darkest) darkest = alphaAt(mid, y), darkestY = y;
        }
        EXPECT_GE(darkestY, c.top + c.height);
        EXPECT_GT(darkest, 20);
        EXPECT_LT(darkest, 255 / 2);
        EXPECT_EQ(pixel(out, mid, darkestY)[0], 0);
        for (int x = 0; x < out.width; ++x) {  // the blur stays inside the margins
            EXPECT_EQ(alphaAt(x, 0), 0) << x;
            EXPECT_EQ(alphaAt(x, out.height - 1), 0) << x;
        }
    }
    // Through a translucent window the shadow adds only alpha (black brings no
    // colour); under a clear part there is none; a clear window casts nothing.
    Image window(60, 40);
    for (int y = 0; y < 40; ++y)
        for (int x = 30; x < 60; ++x) window.row(y)[x * 4 + 2] = window.row(y)[x * 4 + 3] = 100;
    const Image out = addDropShadow(window, 1.0);
    EXPECT_EQ(pixel(out, 24 + 45, 16 + 35)[2], 100);
    EXPECT_GT(pixel(out, 24 + 45, 16 + 35)[3], 100);
    EXPECT_EQ(pixel(out, 24 + 2, 16 + 20), (Px{0, 0, 0, 0}));
    const Image clear = addDropShadow(Image(50, 30), 1.0);
    EXPECT_TRUE(std::all_of(clear.pixels.begin(), clear.pixels.end(), [](uint8_t b) { return b == 0; }));
}

}  // namespace
}  // namespace pv
