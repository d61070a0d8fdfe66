#pragma once
// PNG files to and from premultiplied RGBA pictures.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/image.h"

namespace pv {

// Pictures of more pixels than this (1 GiB as RGBA) are refused, not allocated.
constexpr uint64_t kMaxPNGPixels = uint64_t{1} << 28;

// Any PNG (palette, grey, 16-bit, with or without alpha) as premultiplied RGBA;
// nullopt with a reason in *error when the file cannot be read or decoded, or
// the picture is wider or higher than kMaxPictureSide or has more than
// maxPixels pixels.
std::optional<Image> readPNG(const std::string& path, std::string* error, uint64_t maxPixels = kMaxPNGPixels);
// The same for a PNG held in memory.
std::optional<Image> readPNGData(const uint8_t* data, size_t size, std::string* error,
                                 uint64_t maxPixels = kMaxPNGPixels);

// The picture as an 8-bit RGBA PNG with straight alpha; empty on failure.
std::vector<uint8_t> encodePNG(const Image& image);

}  // namespace pv
