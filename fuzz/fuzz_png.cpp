// The PNG reader on any bytes: it refuses or gives a premultiplied picture
// within the limits, which survives our own PNG encoding unchanged.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/png_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint64_t maxPixels = uint64_t{1} << 20;
    std::string error;
    const auto image = pv::readPNGData(data, size, &error, maxPixels);
    if (!image) {
        if (error.empty()) std::abort();
        return 0;
    }
    if (image->isNull() || image->width > pv::kMaxPictureSide || image->height > pv::kMaxPictureSide ||
        static_cast<uint64_t>(image->width) * static_cast<uint64_t>(image->height) > maxPixels ||
        image->pixels.size() != static_cast<size_t>(image->width) * image->height * 4)
        std::abort();
    for (size_t i = 0; i < image->pixels.size(); i += 4)
        for (int c = 0; c < 3; ++c)
            if (image->pixels[i + c] > image->pixels[i + 3]) std::abort();  // not premultiplied

    const auto encoded = pv::encodePNG(*image);
    const auto again = pv::readPNGData(encoded.data(), encoded.size(), &error, maxPixels);
    if (!again || again->width != image->width || again->height != image->height || again->pixels != image->pixels)
        std::abort();
    return 0;
}
