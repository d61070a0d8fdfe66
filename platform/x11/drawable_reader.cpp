#include "platform/x11/drawable_reader.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <xcb/shm.h>

namespace pv::x11 {
namespace {

constexpr uint32_t kAllPlanes = ~0u;

int bitsPerPixelOf(const xcb_setup_t* setup, uint8_t depth) {
    for (auto it = xcb_setup_pixmap_formats_iterator(setup); it.rem > 0; xcb_format_next(&it))
        if (it.data->depth == depth) return it.data->bits_per_pixel;
    return 0;
}

const xcb_visualtype_t* findVisual(const xcb_setup_t* setup, xcb_visualid_t id) {
    for (auto s = xcb_setup_roots_iterator(setup); s.rem > 0; xcb_screen_next(&s))
        for (auto d = xcb_screen_allowed_depths_iterator(s.data); d.rem > 0; xcb_depth_next(&d))
            for (auto v = xcb_depth_visuals_iterator(d.data); v.rem > 0; xcb_visualtype_next(&v))
                if (v.data->visual_id == id) return v.data;
    return nullptr;
}

bool supported(const ZPixmapFormat& f) { return f.bitsPerPixel >= 8 && f.bitsPerPixel % 8 == 0; }

}  // namespace

DrawableReader::DrawableReader(X11Connection& conn) : conn_(conn) {
    const xcb_query_extension_reply_t* shm = xcb_get_extension_data(conn_.raw(), &xcb_shm_id);
    if (shm && shm->present) {
        auto version = conn_.get(xcb_shm_query_version_reply, xcb_shm_query_version(conn_.raw()));
        shmOffered_ = version != nullptr;
    }
    shmAvailable_ = shmOffered_;
}

DrawableReader::~DrawableReader() {
    try {
        releaseSegment();
    } catch (...) {
        // The display is gone; the kernel frees the segment with the last detach.
    }
}

ZPixmapFormat DrawableReader::formatFor(uint8_t depth, xcb_visualid_t visual) const {
    const xcb_setup_t* setup = xcb_get_setup(conn_.raw());
    ZPixmapFormat f;
    f.depth = depth;
    f.bitsPerPixel = bitsPerPixelOf(setup, depth);
    f.lsbFirst = setup->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST;
    if (const xcb_visualtype_t* v = findVisual(setup, visual)) {
        f.redMask = v->red_mask;
        f.greenMask = v->green_mask;
        f.blueMask = v->blue_mask;
    }
    return f;
}

std::optional<Image> DrawableReader::read(xcb_drawable_t drawable, int16_t x, int16_t y, uint16_t width,
                                          uint16_t height, const ZPixmapFormat& format) {
    if (!supported(format) || width == 0 || height == 0) return std::nullopt;
    if (shmAvailable_) {
        if (auto image = readShared(drawable, x, y, width, height, format)) return image;
        if (!shmAvailable_) return readByRequest(drawable, x, y, width, height, format);
        return std::nullopt;
    }
    return readByRequest(drawable, x, y, width, height, format);
}

std::optional<Image> DrawableReader::readShared(xcb_drawable_t d, int16_t x, int16_t y, uint16_t w, uint16_t h,
                                                const ZPixmapFormat& format) {
    const size_t stride = (static_cast<size_t>(w) * format.bitsPerPixel + 31) / 32 * 4;
    if (!ensureSegment(stride * h)) {
        shmAvailable_ = false;  // the server cannot share memory with us
        return std::nullopt;
    }
    auto reply = conn_.get(xcb_shm_get_image_reply, xcb_shm_get_image(conn_.raw(), d, x, y, w, h, kAllPlanes,
                                                                      XCB_IMAGE_FORMAT_Z_PIXMAP, segment_, 0));
    if (!reply) return std::nullopt;
    return imageFromZPixmap(static_cast<const uint8_t*>(memory_), w, h, static_cast<int>(stride), format);
}

std::optional<Image> DrawableReader::readByRequest(xcb_drawable_t d, int16_t x, int16_t y, uint16_t w, uint16_t h,
                                                   const ZPixmapFormat& format) {
    auto reply = conn_.get(xcb_get_image_reply,
                           xcb_get_image(conn_.raw(), XCB_IMAGE_FORMAT_Z_PIXMAP, d, x, y, w, h, kAllPlanes));
    if (!reply) return std::nullopt;
    const int length = xcb_get_image_data_length(reply.get());
    const int stride = length / h;
    if (stride * 8 < w * format.bitsPerPixel) return std::nullopt;
    return imageFromZPixmap(xcb_get_image_data(reply.get()), w, h, stride, format);
}

bool DrawableReader::ensureSegment(size_t bytes) {
    if (segment_ != 0 && capacity_ >= bytes) return true;
    releaseSegment();
    const int id = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    if (id < 0) return false;
    void* memory = shmat(id, nullptr, 0);
    if (memory == reinterpret_cast<void*>(-1)) {
        shmctl(id, IPC_RMID, nullptr);
        return false;
    }
    const uint32_t segment = xcb_generate_id(conn_.raw());
    const bool attached = conn_.check(xcb_shm_attach_checked(conn_.raw(), segment, static_cast<uint32_t>(id), 0));
    // Once the server holds it (or failed to), nobody else needs to find the id.
    shmctl(id, IPC_RMID, nullptr);
    if (!attached) {
        shmdt(memory);
        return false;
    }
    segment_ = segment;
    memory_ = memory;
    capacity_ = bytes;
    return true;
}

void DrawableReader::releaseSegment() {
    if (segment_ == 0) return;
    xcb_shm_detach(conn_.raw(), segment_);
    xcb_flush(conn_.raw());
    shmdt(memory_);
    segment_ = 0;
    memory_ = nullptr;
    capacity_ = 0;
}

}  // namespace pv::x11
