#include "platform/png_io.h"

#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace pv {

namespace {

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};

// libpng reports errors through longjmp; these keep the reason.
void onError(png_structp png, png_const_charp message) {
    auto* reason = static_cast<std::string*>(png_get_error_ptr(png));
    if (reason) *reason = message;
    png_longjmp(png, 1);
}
void onWarning(png_structp, png_const_charp) {}

void premultiply(Image& image) {
    for (size_t i = 0; i < image.pixels.size(); i += 4) {
        const unsigned a = image.pixels[i + 3];
        if (a == 255) continue;
        for (int c = 0; c < 3; ++c) image.pixels[i + c] = static_cast<uint8_t>((image.pixels[i + c] * a + 127) / 255);
    }
}

// Decodes the open file into *image; false with *reason on failure. Nothing in
// this frame changes between setjmp and a longjmp out of libpng, and the C++
// objects live with the caller.
bool decode(FILE* file, uint64_t maxPixels, Image* image, std::vector<png_bytep>* rows, std::string* reason) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, reason, onError, onWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        *reason = "out of memory";
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        if (reason->empty()) *reason = "not a readable PNG file";
        return false;
    }
    png_init_io(png, file);
    png_read_info(png, info);
    // Whatever the file holds, read 8-bit RGBA, interlaced or not.
    png_set_expand(png);
    png_set_scale_16(png);
    png_set_gray_to_rgb(png);
    png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    if (width > kMaxPictureSide || height > kMaxPictureSide || static_cast<uint64_t>(width) * height > maxPixels) {
        *reason = "picture too large (" + std::to_string(width) + "x" + std::to_string(height) + " pixels)";
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    try {
        *image = Image::unfilled(static_cast<int>(width), static_cast<int>(height));
    } catch (const std::bad_alloc&) {
        *reason = "out of memory for " + std::to_string(width) + "x" + std::to_string(height) + " pixels";
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    rows->resize(height);
    for (png_uint_32 y = 0; y < height; ++y) (*rows)[y] = image->row(static_cast<int>(y));
    png_read_image(png, rows->data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

std::optional<Image> readFrom(FILE* opened, uint64_t maxPixels, std::string* error) {
    std::string reason;
    std::unique_ptr<FILE, FileCloser> file(opened);
    Image image;
    std::vector<png_bytep> rows;
    if (!file) {
        reason = std::strerror(errno);
    } else if (decode(file.get(), maxPixels, &image, &rows, &reason)) {
        premultiply(image);
        return image;
    }
    if (error) *error = reason;
    return std::nullopt;
}

}  // namespace

std::optional<Image> readPNG(const std::string& path, std::string* error, uint64_t maxPixels) {
    return readFrom(std::fopen(path.c_str(), "rb"), maxPixels, error);
}

std::optional<Image> readPNGData(const uint8_t* data, size_t size, std::string* error, uint64_t maxPixels) {
    if (size == 0) {
        if (error) *error = "not a readable PNG file";
        return std::nullopt;
    }
    return readFrom(fmemopen(const_cast<uint8_t*>(data), size, "rb"), maxPixels, error);
}

std::vector<uint8_t> encodePNG(const Image& image) {
    if (image.isNull()) return {};
    std::vector<uint8_t> out;
    // Screenshots compress well: a first guess that spares most regrowing.
    out.reserve(image.byteCount() / 8 + 4096);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return {};
    }
    // One row of straight alpha, as PNG stores it, for rows that are not opaque.
    std::vector<uint8_t> straight(static_cast<size_t>(image.width) * 4);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return {};
    }
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep data, png_size_t length) {
            auto* buffer = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(p));
            buffer->insert(buffer->end(), data, data + length);
        },
        nullptr);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height), 8,
                 PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    // Chosen for screenshots: the SUB filter turns flat areas into runs of
    // zeros, and deflate looking for runs only (level 1) is several times
    // faster than the default, for a file about a tenth larger.
    png_set_compression_level(png, 1);
    png_set_compression_strategy(png, Z_RLE);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    png_write_info(png, info);
    for (int y = 0; y < image.height; ++y) {
        const uint8_t* row = image.row(y);
        const uint8_t* end = row + straight.size();
        const uint8_t* p = row;
        while (p != end && p[3] == 255) p += 4;
        if (p == end) {
            png_write_row(png, row);
            continue;
        }
        std::copy(row, p, straight.begin());
        for (uint8_t* s = straight.data() + (p - row); p != end; p += 4, s += 4) {
            const unsigned a = p[3];
            s[3] = p[3];
            for (int c = 0; c < 3; ++c)
                s[c] = a == 255 ? p[c] : a == 0 ? 0 : static_cast<uint8_t>(std::min(255u, (p[c] * 255u + a / 2) / a));
        }
        png_write_row(png, straight.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

}  // namespace pv
