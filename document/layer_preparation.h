#pragma once
// Turning a pixel layer's bitmap into the channel data that goes into the PSD
// file unchanged.

#include <array>
#include <cstddef>
#include <cstdint>

#include "document/layer_element.h"

namespace pv {

// Prepares one pixel layer in place: reads its RGBA pixels (picture's or
// imageData's) un-premultiplied, without changing them, replaces imageData by
// four channel blocks (red, green, blue, alpha), lets picture go, sets
// channelSizes to their lengths and marks the layer ready.
//   compress set:   00 01, h big-endian 16-bit row byte counts, the h rows
//                   PackBits-encoded;
//   compress clear: 00 00, the channel's w * h bytes row by row.
// w and h are the width and height of layerPixelBounds(location); a layer of
// no pixels gets four raw blocks of just their code. A layer that is already
// ready is left alone. Throws std::runtime_error when the rectangle has no
// bounds, the pixels do not cover it or a block outgrows the format's 32-bit
// length, and
// std::bad_alloc when memory runs out; the layer is then unchanged, never
// marked ready.
void prepareLayer(LayerElement& layer);

// Largest size of one compressed channel block of a w x h layer.
size_t compressedBlockBound(uint64_t width, uint64_t height);

// Encodes channel `channel` (0 red .. 3 alpha) of h rows of w RGBA pixels as
// PackBits rows into `rows`, writing each row's encoded length as a 16-bit
// big-endian count into `counts` (2 * h bytes). `rows` must hold
// h * packBitsBound(w) bytes. Returns the bytes written to `rows`.
size_t encodeChannelRows(uint8_t* counts, uint8_t* rows, const uint8_t* rgba, uint64_t width, uint64_t height,
                         int channel);

// PackBits rows of the four channels of h rows of w RGBA pixels, each row
// first passed through `convert` (out, in, byte count) into a row of its own,
// so that the pixels stay as they are. The result lies in scratch buffers of
// the calling thread, valid until its next call: per channel the 2 * h bytes
// of big-endian row counts and the rows.
struct EncodedChannels {
    std::array<const uint8_t*, 4> counts{};
    std::array<const uint8_t*, 4> rows{};
    std::array<size_t, 4> rowBytes{};
};
using RowConversion = void (*)(uint8_t* out, const uint8_t* in, size_t byteCount);
EncodedChannels encodeChannels(const uint8_t* rgba, uint64_t width, uint64_t height, RowConversion convert);

}  // namespace pv
