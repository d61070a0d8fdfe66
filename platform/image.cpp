#include "platform/image.h"

namespace pv {

Image Image::filled(int w, int h, uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    Image img(w, h);
    const auto premul = [a](uint8_t c) { return static_cast<uint8_t>((c * a + 127) / 255); };
    const uint8_t px[4] = {premul(r), premul(g), premul(b), a};
    for (size_t i = 0; i < img.pixels.size(); i += 4) {
        img.pixels[i] = px[0];
        img.pixels[i + 1] = px[1];
        img.pixels[i + 2] = px[2];
        img.pixels[i + 3] = px[3];
    }
    return img;
}

}  // namespace pv
