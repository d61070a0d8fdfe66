// PNG files to and from premultiplied pictures, and the drop shadow.
#include <gtest/gtest.h>

#include <png.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>

#include "platform/drop_shadow.h"
#include "platform/png_io.h"

namespace pv {
namespace {

namespace fs = std::filesystem;

fs::path tempFile(const std::string& name) {
    return fs::temp_directory_path() / ("pv-png-" + std::to_string(::getpid()) + "-" + name);
}

void writeBytes(const fs::path& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

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

void writeRawPng(const fs::path& path, const RawPng& raw) {
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, static_cast<png_uint_32>(raw.width), static_cast<png_uint_32>(raw.height), raw.bitDepth,
                 raw.colorType, raw.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!raw.palette.empty()) png_set_PLTE(png, info, raw.palette.data(), static_cast<int>(raw.palette.size()));
    if (!raw.paletteAlpha.empty()) {
        png_set_tRNS(png, info, raw.paletteAlpha.data(), static_cast<int>(raw.paletteAlpha.size()), nullptr);
    }
    png_write_info(png, info);
    const size_t stride = raw.rows.size() / static_cast<size_t>(raw.height);
    std::vector<png_bytep> rows;
    for (int y = 0; y < raw.height; ++y) rows.push_back(const_cast<uint8_t*>(raw.rows.data()) + y * stride);
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

// The bytes of an 8-bit RGBA PNG exactly as stored, without any conversion.
std::vector<uint8_t> storedRgba(const std::vector<uint8_t>& file) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, file.data(), file.size())) return {};
    image.format = PNG_FORMAT_RGBA;
    std::vector<uint8_t> out(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, out.data(), 0, nullptr)) return {};
    return out;
}

std::vector<int> pixel(const Image& image, int x, int y) {
    const uint8_t* p = image.row(y) + static_cast<size_t>(x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

std::optional<Image> readBack(const fs::path& path) {
    std::string error;
    auto image = readPNG(path.string(), &error);
    fs::remove(path);
    EXPECT_TRUE(image) << error;
    return image;
}

TEST(Png, EveryPremultipliedValueSurvivesTheRoundTrip) {
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
    const auto path = tempFile("every.png");
    writeBytes(path, encodePNG(image));
    auto back = readBack(path);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->pixels, image.pixels);
}

TEST(Png, FilesHoldStraightAlpha) {
    Image image(3, 1);
    image.pixels = {64, 32, 0, 128,     // half transparent: colours doubled in the file
                    90, 40, 10, 0,      // nothing visible: stored as transparent black
                    200, 100, 50, 255};
    const auto stored = storedRgba(encodePNG(image));
    EXPECT_EQ(stored, (std::vector<uint8_t>{128, 64, 0, 128, 0, 0, 0, 0, 200, 100, 50, 255}));
}

TEST(Png, GreyFilesBecomeOpaqueRgba) {
    const auto path = tempFile("grey.png");
    RawPng raw;
    raw.width = 2;
    raw.height = 2;
    raw.rows = {0, 128, 255, 7};
    writeRawPng(path, raw);
    auto image = readBack(path);
    ASSERT_TRUE(image);
    EXPECT_EQ(pixel(*image, 1, 0), (std::vector<int>{128, 128, 128, 255}));
    EXPECT_EQ(pixel(*image, 1, 1), (std::vector<int>{7, 7, 7, 255}));
}

TEST(Png, PaletteFilesWithTransparencyArePremultiplied) {
    const auto path = tempFile("palette.png");
    // Two bits per pixel: entries 0 (clear), 1 (half-transparent red), 2 (opaque blue).
    RawPng raw;
    raw.width = 3;
    raw.height = 1;
    raw.colorType = PNG_COLOR_TYPE_PALETTE;
    raw.bitDepth = 2;
    raw.rows = {0b00011000};
    raw.palette = {{9, 9, 9}, {255, 0, 0}, {0, 0, 255}};
    raw.paletteAlpha = {0, 128};
    writeRawPng(path, raw);
    auto image = readBack(path);
    ASSERT_TRUE(image);
    ASSERT_EQ(image->width, 3);
    EXPECT_EQ(pixel(*image, 0, 0), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(pixel(*image, 1, 0), (std::vector<int>{128, 0, 0, 128}));
    EXPECT_EQ(pixel(*image, 2, 0), (std::vector<int>{0, 0, 255, 255}));
}

TEST(Png, SixteenBitInterlacedGreyWithAlpha) {
    // 9x9 so that every interlace pass has pixels; grey rises along x, alpha
    // along y. Low bytes of 0xF0 make rounding differ from dropping them.
    RawPng raw;
    raw.width = 9;
    raw.height = 9;
    raw.colorType = PNG_COLOR_TYPE_GRAY_ALPHA;
    raw.bitDepth = 16;
    raw.interlaced = true;
    for (int y = 0; y < 9; ++y) {
        for (int x = 0; x < 9; ++x) {
            const int grey = x * 0x1000 + 0xF0;
            const int alpha = y == 8 ? 0xFFFF : y * 0x1000 + 0xF0;
            for (int v : {grey, alpha}) {
                raw.rows.push_back(static_cast<uint8_t>(v >> 8));
                raw.rows.push_back(static_cast<uint8_t>(v & 0xFF));
            }
        }
    }
    const auto path = tempFile("grey16.png");
    writeRawPng(path, raw);
    auto image = readBack(path);
    ASSERT_TRUE(image);
    ASSERT_EQ(image->width, 9);
    ASSERT_EQ(image->height, 9);
    // Opaque bottom row: grey 0x50F0 / 257 = 80.6, rounded to 81 (not 80).
    EXPECT_EQ(pixel(*image, 5, 8), (std::vector<int>{81, 81, 81, 255}));
    // Alpha 0x30F0 / 257 = 48.7 gives 49; grey 0x40F0 gives 65, 65 * 49 / 255 = 12.49.
    EXPECT_EQ(pixel(*image, 4, 3), (std::vector<int>{12, 12, 12, 49}));
    // The interlace passes put every pixel back in its place.
    for (int x = 0; x < 9; ++x) EXPECT_EQ(pixel(*image, x, 8)[0], (x * 0x1000 + 0xF0 + 128) / 257) << x;
    EXPECT_EQ(pixel(*image, 8, 0)[3], 1);
}

TEST(Png, UnreadableFilesGiveAReason) {
    std::string error;
    EXPECT_FALSE(readPNG("/no/such/file.png", &error));
    EXPECT_FALSE(error.empty());
    const auto path = tempFile("junk.png");
    writeBytes(path, {'n', 'o', 't', ' ', 'a', ' ', 'p', 'n', 'g'});
    error.clear();
    EXPECT_FALSE(readPNG(path.string(), &error));
    EXPECT_FALSE(readPNG(path.string(), nullptr));  // a caller may not want the reason
    fs::remove(path);
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(encodePNG(Image()).empty());
}

TEST(Png, PicturesBeyondTheSideOrPixelLimitsAreRefusedBeforeTheyAreMade) {
    // Grey rows of one byte per pixel: a 30001-pixel row costs 30 KB, not 120.
    const fs::path wide = tempFile("wide.png");
    writeRawPng(wide, RawPng{kMaxPictureSide + 1, 1, PNG_COLOR_TYPE_GRAY, 8, false,
                             std::vector<uint8_t>(kMaxPictureSide + 1, 7), {}, {}});
    std::string error;
    EXPECT_FALSE(readPNG(wide.string(), &error));
    EXPECT_NE(error.find("too large (30001x1 pixels)"), std::string::npos) << error;
    fs::remove(wide);

    const std::vector<uint8_t> small = encodePNG(Image::filled(10, 10, 1, 2, 3, 255));
    EXPECT_TRUE(readPNGData(small.data(), small.size(), &error, 100));
    EXPECT_FALSE(readPNGData(small.data(), small.size(), &error, 99));
    EXPECT_NE(error.find("too large (10x10 pixels)"), std::string::npos) << error;
    EXPECT_FALSE(readPNGData(small.data(), 0, &error));
    EXPECT_FALSE(readPNGData(small.data(), small.size() / 2, &error));  // cut short
}

TEST(DropShadow, MarginsAreTwiceAsDeepBelowAsAbove) {
    const auto m1 = dropShadowMargins(1.0);
    EXPECT_EQ(m1.left, 24);
    EXPECT_EQ(m1.right, 24);
    EXPECT_EQ(m1.top, 16);
    EXPECT_EQ(m1.bottom, 32);
    EXPECT_EQ(dropShadowMargins(2.0).bottom, 64);
}

TEST(DropShadow, KeepsTheWindowAndFallsSoftlyBelowIt) {
    const Image window = Image::filled(100, 60, 0, 200, 0, 255);
    const Image out = addDropShadow(window, 1.0);
    ASSERT_EQ(out.width, 148);
    ASSERT_EQ(out.height, 108);
    // The opaque window is unchanged, at (24, 16).
    for (int y = 0; y < 60; y += 7) {
        for (int x = 0; x < 100; x += 9) {
            const uint8_t* p = out.row(16 + y) + (24 + x) * 4;
            ASSERT_EQ((std::vector<uint8_t>{p[0], p[1], p[2], p[3]}), (std::vector<uint8_t>{0, 200, 0, 255}));
        }
    }
    const auto alphaAt = [&](int x, int y) { return out.row(y)[x * 4 + 3]; };
    const auto colourAt = [&](int x, int y) { return out.row(y)[x * 4]; };
    // Below the window: dark, semi-transparent, fading outward.
    const int below = alphaAt(74, 16 + 60 + 4);
    EXPECT_GT(below, 20);
    EXPECT_LT(below, 255);
    EXPECT_EQ(colourAt(74, 16 + 60 + 4), 0);
    EXPECT_GT(below, alphaAt(74, 107));
    // Deeper below than above.
    EXPECT_GT(alphaAt(74, 16 + 60 + 4), alphaAt(74, 16 - 4));
    // Corners of the canvas are clear.
    EXPECT_EQ(alphaAt(0, 0), 0);
}

TEST(DropShadow, IsSymmetricAndDarkestJustBelowTheWindow) {
    const Image out = addDropShadow(Image::filled(160, 80, 255, 255, 255, 255), 2.0);
    const auto m = dropShadowMargins(2.0);
    ASSERT_EQ(out.width, 160 + m.left + m.right);
    ASSERT_EQ(out.height, 80 + m.top + m.bottom);
    const auto alphaAt = [&](int x, int y) { return static_cast<int>(out.row(y)[x * 4 + 3]); };
    for (int y = 0; y < out.height; y += 5) {
        for (int x = 0; x < m.left; x += 3) ASSERT_EQ(alphaAt(x, y), alphaAt(out.width - 1 - x, y)) << x << "," << y;
    }
    // Down the middle, outside the window: the darkest shadow pixel is below it.
    const int mid = out.width / 2;
    int darkest = 0, darkestY = -1;
    for (int y = 0; y < out.height; ++y) {
        if (y >= m.top && y < m.top + 80) continue;
        if (alphaAt(mid, y) > darkest) darkest = alphaAt(mid, y), darkestY = y;
    }
    EXPECT_GE(darkestY, m.top + 80);  // the first row under the window or lower
    EXPECT_LT(darkest, 255 / 2);  // semi-transparent, never a solid band
    // Clear at the canvas edges: the blur stays inside the margins.
    for (int x = 0; x < out.width; ++x) {
        EXPECT_EQ(alphaAt(x, 0), 0) << x;
        EXPECT_EQ(alphaAt(x, out.height - 1), 0) << x;
    }
}

TEST(DropShadow, ShowsThroughTranslucentWindowsAndFollowsTheirShape) {
    // Left half clear, right half a translucent blue.
    Image window(60, 40);
    for (int y = 0; y < 40; ++y) {
        for (int x = 30; x < 60; ++x) {
            uint8_t* p = window.row(y) + x * 4;
            p[2] = 100;
            p[3] = 100;
        }
    }
    const Image out = addDropShadow(window, 1.0);
    const auto at = [&](int x, int y) { return pixel(out, x, y); };
    // Inside the translucent half the shadow adds only alpha: the blue stays,
    // as black under it contributes no colour.
    const auto inside = at(24 + 45, 16 + 35);
    EXPECT_EQ(inside[2], 100);
    EXPECT_GT(inside[3], 100);
    // Under the clear half, far from the blue, there is no shadow at all.
    EXPECT_EQ(at(24 + 2, 16 + 20), (std::vector<int>{0, 0, 0, 0}));
    // A window with nothing opaque casts nothing.
    const Image clear = addDropShadow(Image(50, 30), 1.0);
    EXPECT_TRUE(std::all_of(clear.pixels.begin(), clear.pixels.end(), [](uint8_t b) { return b == 0; }));
}

}  // namespace
}  // namespace pv
