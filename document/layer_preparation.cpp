#include "document/layer_preparation.h"

#include <cmath>
#include <limits>
#include <memory>
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

EncodedChannels encodeChannels(const uint8_t* rgba, uint64_t w, uint64_t h, RowConversion convert) {
    // Grown to the largest picture once and reused; written before read, so
    // never cleared.
    thread_local std::vector<uint8_t> row;
    thread_local std::array<std::unique_ptr<uint8_t[]>, 4> rows;
    thread_local std::array<std::unique_ptr<uint8_t[]>, 4> counts;
    thread_local uint64_t rowCapacity = 0, countCapacity = 0;
    const uint64_t rowBytes = h * packBitsBound(w);
    if (rowCapacity < rowBytes) {
        for (auto& r : rows) r.reset(new uint8_t[rowBytes]);
        rowCapacity = rowBytes;
    }
    if (countCapacity < 2 * h) {
        for (auto& c : counts) c.reset(new uint8_t[2 * h]);
        countCapacity = 2 * h;
    }
    row.resize(w * 4);
    EncodedChannels e;
    for (uint64_t y = 0; y < h; ++y) {
        convert(row.data(), rgba + y * w * 4, w * 4);
        for (int c = 0; c < 4; ++c) {
            const size_t n = packBitsInto(rows[c].get() + e.rowBytes[c], row.data() + c, w, 4);
            // A row of up to 65,026 pixels always fits; wider rows keep the low 16 bits.
            counts[c][2 * y] = static_cast<uint8_t>((n >> 8) & 0xFF);
            counts[c][2 * y + 1] = static_cast<uint8_t>(n & 0xFF);
            e.rowBytes[c] += n;
        }
    }
    for (int c = 0; c < 4; ++c) {
        e.counts[c] = counts[c].get();
        e.rows[c] = rows[c].get();
    }
    return e;
}

void prepareLayer(LayerElement& layer) {
    if (layer.ready) return;
    const LayerPixelBounds bounds = boundsOf(layer);
    const auto w = static_cast<uint64_t>(bounds.width);
    const auto h = static_cast<uint64_t>(bounds.height);
    const uint64_t pixelBytes = w * h * 4;
    if (layer.pixelBytes() < pixelBytes)
        throw std::runtime_error("layer \"" + layer.name + "\" holds " + std::to_string(layer.pixelBytes()) +
                                 " bytes of pixels, its " + std::to_string(w) + "x" + std::to_string(h) +
                                 " rectangle needs " + std::to_string(pixelBytes));

    const uint8_t* pixels = layer.pixelsView(bounds.width, bounds.height).data;
    std::array<int32_t, 4> sizes{};
    std::vector<uint8_t> out;

    if (w == 0 || h == 0) {
        // No pixels: four raw blocks of nothing, as readers expect of an empty layer.
        out.assign(8, 0);
        sizes = {2, 2, 2, 2};
    } else if (layer.compress) {
        // One pass over the pixels into this thread's scratch buffers; the
        // layer then gets exactly the bytes written.
        const EncodedChannels encoded = encodeChannels(pixels, w, h, unpremultiplyInto);
        size_t total = 0;
        for (int c = 0; c < 4; ++c) {
            sizes[c] = blockLength(2 + 2 * h + encoded.rowBytes[c], layer.name);
            total += static_cast<size_t>(sizes[c]);
        }
        out.reserve(total);
        for (int c = 0; c < 4; ++c) {
            static const uint8_t packBitsCode[2] = {0, 1};
            out.insert(out.end(), packBitsCode, packBitsCode + 2);
            out.insert(out.end(), encoded.counts[c], encoded.counts[c] + 2 * h);
            out.insert(out.end(), encoded.rows[c], encoded.rows[c] + encoded.rowBytes[c]);
        }
    } else {
        const uint64_t plane = w * h;
        for (int c = 0; c < 4; ++c) sizes[c] = blockLength(plane + 2, layer.name);
        out.resize(4 * (plane + 2));
        std::vector<uint8_t> straight(w * 4);
        for (uint64_t y = 0; y < h; ++y) {
            unpremultiplyInto(straight.data(), pixels + y * w * 4, w * 4);
            for (int c = 0; c < 4; ++c) {
                uint8_t* o = out.data() + c * (plane + 2) + 2 + y * w;
                const uint8_t* s = straight.data() + c;
                for (uint64_t x = 0; x < w; ++x, s += 4) *o++ = *s;
            }
        }
    }

    layer.imageData = std::move(out);
    layer.picture.reset();
    layer.channelSizes = sizes;
    layer.ready = true;
}

}  // namespace pv
