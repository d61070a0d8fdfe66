#pragma once
// PNG files to and from premultiplied RGBA pictures.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/image.h"

namespace pv {

// Any PNG (palette, grey, 16-bit, with or without alpha) as premultiplied RGBA;
// nullopt with a reason in *error when the file cannot be read or decoded.
std::optional<Image> readPNG(const std::string& path, std::string* error);

// The picture as an 8-bit RGBA PNG with straight alpha; empty on failure.
std::vector<uint8_t> encodePNG(const Image& image);

}  // namespace pv
