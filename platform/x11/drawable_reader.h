#pragma once
// Reads the pixels of an X drawable: through a shared-memory segment when the
// server offers MIT-SHM and can attach it (same machine), else with GetImage.

#include <xcb/xcb.h>

#include <cstddef>
#include <optional>

#include "platform/image.h"
#include "platform/x11/x11_connection.h"
#include "platform/x11/zpixmap_pixels.h"

namespace pv::x11 {

class DrawableReader {
public:
    explicit DrawableReader(X11Connection& conn);
    ~DrawableReader();
    DrawableReader(const DrawableReader&) = delete;
    DrawableReader& operator=(const DrawableReader&) = delete;

    // nullopt when the drawable is gone or the rectangle is not inside it.
    std::optional<Image> read(xcb_drawable_t drawable, int16_t x, int16_t y, uint16_t width, uint16_t height,
                              const ZPixmapFormat& format);

    bool usesSharedMemory() const { return shmAvailable_; }
    // Turning it off forces GetImage (a server on another machine, or tests).
    void setSharedMemory(bool on) { shmAvailable_ = on && shmOffered_; }

    // The format of drawables of the given depth shown with the given visual.
    ZPixmapFormat formatFor(uint8_t depth, xcb_visualid_t visual) const;

private:
    std::optional<Image> readShared(xcb_drawable_t d, int16_t x, int16_t y, uint16_t w, uint16_t h,
                                    const ZPixmapFormat& format);
    std::optional<Image> readByRequest(xcb_drawable_t d, int16_t x, int16_t y, uint16_t w, uint16_t h,
                                       const ZPixmapFormat& format);
    bool ensureSegment(size_t bytes);
    void releaseSegment();

    X11Connection& conn_;
    bool shmOffered_ = false;
    bool shmAvailable_ = false;
    uint32_t segment_ = 0;  // the server's id of our segment, 0 when none
    void* memory_ = nullptr;
    size_t capacity_ = 0;
};

}  // namespace pv::x11
