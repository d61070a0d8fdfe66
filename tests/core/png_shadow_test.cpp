// PNG files to and from premultiplied pictures, and the drop shadow.
#include <gtest/gtest.h>

#include <png.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

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

// An 8-bit grey PNG written with libpng directly, as other programs make them.
void writeGreyPng(const fs::path& path, const std::vector<uint8_t>& grey, int w, int h) {
    FILE* f = std::fopen(path.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, static_cast<png_uint_32>(w), static_cast<png_uint_32>(h), 8, PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < h; ++y) png_write_row(png, grey.data() + static_cast<size_t>(y) * w);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

TEST(Png, RoundTripKeepsPremultipliedPixels) {
    Image image(3, 2);
    const std::vector<uint8_t> px{200, 100, 50, 255,  // opaque
                                  64, 32, 0, 128,     // half transparent
                                  0, 0, 0, 0,         // fully transparent
                                  10, 20, 30, 255, 1, 1, 1, 2, 255, 255, 255, 255};
    image.pixels = px;
    const auto path = tempFile("roundtrip.png");
    writeBytes(path, encodePNG(image));
    std::string error;
    auto back = readPNG(path.string(), &error);
    fs::remove(path);
    ASSERT_TRUE(back) << error;
    ASSERT_EQ(back->width, 3);
    ASSERT_EQ(back->height, 2);
    for (size_t i = 0; i < px.size(); ++i) {
        EXPECT_NEAR(back->pixels[i], px[i], 1) << "byte " << i;
    }
}

TEST(Png, GreyFilesBecomeOpaqueRgba) {
    const auto path = tempFile("grey.png");
    writeGreyPng(path, {0, 128, 255, 7}, 2, 2);
    std::string error;
    auto image = readPNG(path.string(), &error);
    fs::remove(path);
    ASSERT_TRUE(image) << error;
    EXPECT_EQ((std::vector<uint8_t>(image->pixels.begin() + 4, image->pixels.begin() + 8)),
              (std::vector<uint8_t>{128, 128, 128, 255}));
}

TEST(Png, UnreadableFilesGiveAReason) {
    std::string error;
    EXPECT_FALSE(readPNG("/no/such/file.png", &error));
    EXPECT_FALSE(error.empty());
    const auto path = tempFile("junk.png");
    writeBytes(path, {'n', 'o', 't', ' ', 'a', ' ', 'p', 'n', 'g'});
    error.clear();
    EXPECT_FALSE(readPNG(path.string(), &error));
    fs::remove(path);
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(encodePNG(Image()).empty());
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

}  // namespace
}  // namespace pv
