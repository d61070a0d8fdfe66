#include "document/layer_preparation.h"

#include <cmath>
#include <limits>
#include <stdexcept>

#include "document/byte_buffer.h"
#include "document/unpremultiply.h"

namespace pv {

namespace {

LayerPixelBounds boundsOf(const LayerElement& layer) {
    auto bounds = layerPixelBounds(layer.location);
    if (!bounds)
        throw std::runtime_error("layer \"" + layer.name + "\" has the rectangle " + rectToString(layer.location) +
                                 ", which a document cannot hold");
    return *bounds;
}

int32_t blockLength(uint64_t length, const std::string& name) {
    if (length > static_cast<uint64_t>(std::numeric_limits<int32_t>::max()))
        throw std::runtime_error("layer \"" + name + "\" is too large: a channel needs " + std::to_string(length) +
                                 " bytes");
    return static_cast<int32_t>(length);
}

}  // namespace

size_t compressedBlockBound(uint64_t width, uint64_t height) { return 2 + 2 * height + height * packBitsBound(width); }

size_t encodeChannelRows(uint8_t* counts, uint8_t* rows, const uint8_t* rgba, uint64_t width, uint64_t height,
                         int channel) {
    uint8_t* out = rows;
    const uint64_t rowBytes = width * 4;
    for (uint64_t y = 0; y < height; ++y) {
        const size_t n = packBitsInto(out, rgba + y * rowBytes + channel, width, 4);
        // A row of up to 65,026 pixels always fits; wider rows keep the low 16 bits.
        counts[2 * y] = static_cast<uint8_t>((n >> 8) & 0xFF);
        counts[2 * y + 1] = static_cast<uint8_t>(n & 0xFF);
        out += n;
    }
    return static_cast<size_t>(out - rows);
}

void prepareLayer(LayerElement& layer) {
    if (layer.ready) return;
    const LayerPixelBounds bounds = boundsOf(layer);
    const auto w = static_cast<uint64_t>(bounds.width);
    const auto h = static_cast<uint64_t>(bounds.height);
    const uint64_t pixelBytes = w * h * 4;
    if (layer.imageData.size() < pixelBytes)
        throw std::runtime_error("layer \"" + layer.name + "\" holds " + std::to_string(layer.imageData.size()) +
                                 " bytes of pixels, its " + std::to_string(w) + "x" + std::to_string(h) +
                                 " rectangle needs " + std::to_string(pixelBytes));

    const uint8_t* pixels = layer.imageData.data();
    std::array<int32_t, 4> sizes{};
    std::vector<uint8_t> out;

    if (w == 0 || h == 0) {
        // No pixels: four raw blocks of nothing, as readers expect of an empty layer.
        out.assign(8, 0);
        sizes = {2, 2, 2, 2};
    } else if (layer.compress) {
        out.resize(4 * compressedBlockBound(w, h));
        unpremultiply(layer.imageData.data(), pixelBytes);
        size_t pos = 0;
        for (int c = 0; c < 4; ++c) {
            const size_t start = pos;
            out[pos++] = 0;
            out[pos++] = 1;
            uint8_t* counts = out.data() + pos;
            pos += 2 * h;
            pos += encodeChannelRows(counts, out.data() + pos, pixels, w, h, c);
            sizes[c] = blockLength(pos - start, layer.name);
        }
        out.resize(pos);
        out.shrink_to_fit();
    } else {
        const uint64_t plane = w * h;
        for (int c = 0; c < 4; ++c) sizes[c] = blockLength(plane + 2, layer.name);
        out.resize(4 * (plane + 2));
        unpremultiply(layer.imageData.data(), pixelBytes);
        uint8_t* o = out.data();
        for (int c = 0; c < 4; ++c) {
            *o++ = 0;
            *o++ = 0;
            const uint8_t* s = pixels + c;
            for (uint64_t i = 0; i < plane; ++i, s += 4) *o++ = *s;
        }
    }

    layer.imageData = std::move(out);
    layer.channelSizes = sizes;
    layer.ready = true;
}

}  // namespace pv
