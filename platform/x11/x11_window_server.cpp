#include "platform/x11/x11_window_server.h"

#include <unistd.h>
#include <xcb/res.h>

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "platform/drop_shadow.h"
#include "platform/x11/desktop_layout.h"
#include "platform/x11/drawable_reader.h"
#include "platform/x11/visible_frame.h"
#include "platform/x11/window_pixels.h"
#include "platform/x11/x11_connection.h"
#include "platform/x11/x11_screens.h"
#include "platform/x11/x11_window_list.h"

namespace pv {

namespace {

void fillRect(Image& image, int32_t x, int32_t y, int32_t width, int32_t height, uint8_t r, uint8_t g, uint8_t b,
              uint8_t a) {
    for (int32_t row = std::max(0, y); row < std::min(image.height, y + height); ++row) {
        uint8_t* p = image.row(row);
        for (int32_t col = std::max(0, x); col < std::min(image.width, x + width); ++col) {
            p[col * 4] = r;
            p[col * 4 + 1] = g;
            p[col * 4 + 2] = b;
            p[col * 4 + 3] = a;
        }
    }
}

}  // namespace

using namespace x11;

namespace {

std::vector<MonitorBox> boxes(const std::vector<X11Monitor>& monitors) {
    std::vector<MonitorBox> out;
    for (const X11Monitor& m : monitors) out.push_back(m.box);
    return out;
}

// The part of picture (whose top-left corner is at left, top) inside the
// rectangle, placed where it falls; the rest stays transparent.
std::optional<Image> crop(const Image& picture, int32_t left, int32_t top, int32_t x, int32_t y, int32_t width,
                          int32_t height) {
    const int32_t x0 = std::max(x, left), y0 = std::max(y, top);
    const int32_t x1 = std::min(x + width, left + picture.width), y1 = std::min(y + height, top + picture.height);
    if (x0 >= x1 || y0 >= y1) return std::nullopt;
    Image out(width, height);
    for (int32_t row = y0; row < y1; ++row)
        std::copy_n(picture.row(row - top) + 4 * (x0 - left), 4 * (x1 - x0), out.row(row - y) + 4 * (x0 - x));
    return out;
}

}  // namespace

std::unique_ptr<X11WindowServer> X11WindowServer::connect(const std::string& displayName, std::string* error) {
    auto conn = X11Connection::open(displayName, error);
    if (!conn) return nullptr;
    // The server may go away while we set up: that is a failed connection too.
    try {
        std::unique_ptr<X11WindowServer> server(new X11WindowServer(std::move(conn)));
        server->conn_->ensureAlive();
        return server;
    } catch (const PlatformError& e) {
        const char* shown = displayName.empty() ? std::getenv("DISPLAY") : displayName.c_str();
        if (error) *error = std::string("cannot open X display ") + (shown ? shown : "") + ": " + e.what();
        return nullptr;
    }
}

X11WindowServer::X11WindowServer(std::unique_ptr<X11Connection> conn) : conn_(std::move(conn)) {
    const xcb_query_extension_reply_t* res = xcb_get_extension_data(conn_->raw(), &xcb_res_id);
    hasXRes_ = res && res->present;
    reader_ = std::make_unique<DrawableReader>(*conn_);
    pixels_ = std::make_unique<WindowPixels>(*conn_, *reader_);
    pixels_->prepare();
    // Read from the environment once; the entries themselves on the first list.
    applications_ = std::make_unique<DesktopEntryCache>(DesktopEntryCache::fromEnvironment());
}

X11WindowServer::~X11WindowServer() = default;

std::string X11WindowServer::hostName() {
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name - 1) != 0) return "localhost";
    return name;
}

std::vector<X11Monitor> X11WindowServer::monitors() {
    conn_->ensureAlive();
    return readMonitors(*conn_);
}

std::vector<ScreenListEntry> X11WindowServer::screenList() {
    std::lock_guard lock(mutex_);
    return screenEntries(boxes(monitors()), readBackingScale(*conn_));
}

std::optional<std::string> X11WindowServer::productName(uint32_t displayId) {
    std::lock_guard lock(mutex_);
    for (const X11Monitor& m : monitors())
        if (m.box.id == displayId) return readProductName(*conn_, m);
    return std::nullopt;
}

std::vector<WindowListEntry> X11WindowServer::windowList() {
    std::lock_guard lock(mutex_);
    conn_->drainEvents();
    const auto monitorBoxes = boxes(monitors());
    return readWindowList(*conn_, monitorBoxes, layoutFor(monitorBoxes, readBackingScale(*conn_)), hasXRes_,
                          &applications_->current());
}

std::optional<std::vector<uint32_t>> X11WindowServer::displaysOfRect(const WindowRect& bounds, uint32_t maxCount) {
    return displaysMeetingRect(screenList(), bounds, maxCount);
}

std::optional<Image> X11WindowServer::windowPicture(const std::optional<WindowRect>& bounds, uint32_t windowNumber,
                                                    bool framing) {
    std::optional<Image> picture;
    double scale = 1.0;
    {
        std::lock_guard lock(mutex_);
        conn_->drainEvents();
        auto top = topLevelOf(*conn_, windowNumber);
        if (!top) return std::nullopt;
        picture = visiblePixels(*top);
        if (picture && bounds) picture = cutToRect(*picture, top->visible, *bounds);
        if (picture && framing) scale = readBackingScale(*conn_);
    }
    if (picture && framing) return addDropShadow(*picture, scale);
    return picture;
}

// The frame's pixels inside the visible frame: a window manager's invisible
// border and a client's own shadow margin stay out.
std::optional<Image> X11WindowServer::visiblePixels(const TopLevel& top) {
    auto frame = pixels_->frame(top.frame);
    if (!frame) return std::nullopt;
    auto outer = readRootRect(*conn_, top.frame);
    if (!outer) return std::nullopt;
    if (top.visible == *outer) return frame;
    return crop(*frame, outer->x, outer->y, top.visible.x, top.visible.y, top.visible.width, top.visible.height);
}

std::optional<Image> X11WindowServer::cutToRect(const Image& picture, const RootBox& at, const WindowRect& bounds) {
    const DesktopLayout layout = layoutFor(boxes(monitors()), readBackingScale(*conn_));
    const RootBox r = layout.toPixels(bounds);
    return crop(picture, at.x, at.y, r.x, r.y, r.width, r.height);
}

std::optional<Image> X11WindowServer::desktopPicture() {
    std::lock_guard lock(mutex_);
    conn_->drainEvents();
    auto picture = pixels_->root();
    if (!picture) return picture;
    leaveOutUnshared(*picture);
    // The desktop is what the monitors show: the root may reach beyond them.
    RootBox area;
    for (const MonitorBox& m : boxes(monitors())) {
        const int32_t x0 = area.isEmpty() ? m.x : std::min(area.x, m.x);
        const int32_t y0 = area.isEmpty() ? m.y : std::min(area.y, m.y);
        const int32_t x1 = area.isEmpty() ? m.x + m.width : std::max(area.x + area.width, m.x + m.width);
        const int32_t y1 = area.isEmpty() ? m.y + m.height : std::max(area.y + area.height, m.y + m.height);
        area = {x0, y0, x1 - x0, y1 - y0};
    }
    if (area.isEmpty() || area == RootBox{0, 0, picture->width, picture->height}) return picture;
    return crop(*picture, 0, 0, area.x, area.y, area.width, area.height);
}

// The screen shows our own windows (and any whose owner forbids capture);
// the desktop picture must not. Where one stands, the picture is painted
// again from the other windows' own pixels, back to front, over black.
void X11WindowServer::leaveOutUnshared(Image& desktop) {
    const auto monitorBoxes = boxes(monitors());
    const auto windows = readWindows(*conn_, monitorBoxes, layoutFor(monitorBoxes, readBackingScale(*conn_)), hasXRes_);
    for (const ListedWindow& hidden : windows) {
        if (hidden.entry.sharingState != 0) continue;
        const RootBox area = hidden.top.visible;
        fillRect(desktop, area.x, area.y, area.width, area.height, 0, 0, 0, 255);
        for (auto it = windows.rbegin(); it != windows.rend(); ++it) {
            if (it->entry.sharingState == 0 || !it->top.visible.intersects(area)) continue;
            if (auto pixels = visiblePixels(it->top)) {
                drawOver(desktop, *pixels, it->top.visible.x, it->top.visible.y,
                         {area.x, area.y, area.width, area.height});
            }
        }
    }
}

bool X11WindowServer::isXwayland() {
    std::lock_guard lock(mutex_);
    return displayIsXwayland(*conn_);
}

void X11WindowServer::setSharedMemory(bool on) {
    std::lock_guard lock(mutex_);
    reader_->setSharedMemory(on);
}

bool X11WindowServer::usesSharedMemory() const {
    std::lock_guard lock(mutex_);
    return reader_->usesSharedMemory();
}

}  // namespace pv
