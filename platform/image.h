#pragma once
// A picture in memory: 8-bit RGBA, alpha premultiplied, rows top to bottom with
// no gap between them (4 * width bytes per row).

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace pv {

// Largest width or height of a picture we make or read: the largest side of
// a document the writers accept.
constexpr int kMaxPictureSide = 30000;

// An allocator whose elements start uninitialised unless given a value, so
// that a buffer about to be written whole is not zeroed first.
template <class T>
struct UninitializedAllocator : std::allocator<T> {
    template <class U>
    struct rebind {
        using other = UninitializedAllocator<U>;
    };
    UninitializedAllocator() = default;
    template <class U>
    UninitializedAllocator(const UninitializedAllocator<U>&) noexcept {}
    template <class U, class... Args>
    void construct(U* p, Args&&... args) {
        if constexpr (sizeof...(Args) == 0)
            ::new (static_cast<void*>(p)) U;
        else
            ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
};
using PixelBytes = std::vector<uint8_t, UninitializedAllocator<uint8_t>>;

inline bool operator==(const PixelBytes& a, const std::vector<uint8_t>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

// A picture side given in (fractional) pixels, truncated, when it is finite and
// 0 to kMaxPictureSide; nullopt otherwise. Sizes are checked here before they
// become integers.
std::optional<int> pictureSide(double pixels);

struct Image {
    int width = 0;
    int height = 0;
    PixelBytes pixels;  // width * height * 4 bytes

    Image() = default;
    // Transparent black.
    Image(int w, int h) : width(w), height(h), pixels(static_cast<size_t>(w) * h * 4, 0) {}
    // Pixels left unset, for a picture about to be written whole.
    static Image unfilled(int w, int h);

    bool isNull() const { return width <= 0 || height <= 0; }
    size_t byteCount() const { return pixels.size(); }
    uint8_t* row(int y) { return pixels.data() + static_cast<size_t>(y) * width * 4; }
    const uint8_t* row(int y) const { return pixels.data() + static_cast<size_t>(y) * width * 4; }

    // A picture of one colour given straight (not premultiplied).
    static Image filled(int w, int h, uint8_t r, uint8_t g, uint8_t b, uint8_t a);
};

// The picture scaled to width x height pixels: bilinear when growing, the
// average of the covered source area when shrinking (premultiplied values, so
// transparent pixels do not darken their neighbours).
Image resampled(const Image& src, int width, int height);

// Where drawOver may change the destination: x, y, width, height in its pixels.
struct PixelClip {
    int x = 0;
    int y = 0;
    int width = 1 << 30;
    int height = 1 << 30;
};

// Pixels held elsewhere, in the layout of an Image.
struct PixelsView {
    const uint8_t* data = nullptr;
    int width = 0;
    int height = 0;
};

// Draws src with its top-left corner at (left, top) over dst (source-over,
// premultiplied), touching only the pixels of dst inside clip.
void drawOver(Image& dst, const PixelsView& src, int left, int top, const PixelClip& clip = {});
inline void drawOver(Image& dst, const Image& src, int left, int top, const PixelClip& clip = {}) {
    drawOver(dst, PixelsView{src.pixels.data(), src.width, src.height}, left, top, clip);
}

using ImagePtr = std::shared_ptr<const Image>;

}  // namespace pv
