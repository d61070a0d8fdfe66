#include "tests/x11/x11_test_support.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <regex>

#include "platform/png_io.h"
#include <stdexcept>
#include <thread>

namespace pv::test {
namespace {

long fieldOf(const std::string& text, const std::string& label) {
    std::smatch m;
    if (!std::regex_search(text, m, std::regex(label + R"(:\s+(-?\d+))"))) throw std::runtime_error("no " + label);
    return std::stol(m[1]);
}

}  // namespace

// A copy: the list is often a temporary.
std::optional<WindowListEntry> entryTitled(const std::vector<WindowListEntry>& list, const std::string& title) {
    for (const auto& e : list)
        if (e.title == title) return e;
    return std::nullopt;
}

int indexOfTitle(const std::vector<WindowListEntry>& list, const std::string& title) {
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i].title == title) return static_cast<int>(i);
    return -1;
}

bool waitForTitles(WindowServer& server, const std::vector<std::string>& titles) {
    return XvfbSession::waitFor([&] {
        const auto list = server.windowList();
        for (const auto& t : titles)
            if (!entryTitled(list, t)) return false;
        return true;
    });
}

bool waitUntilDrawn(WindowServer& server, uint32_t number) {
    std::optional<Image> last;
    return XvfbSession::waitFor([&] {
        auto now = server.windowPicture(std::nullopt, number, false);
        const bool still = now && last && differingPixels(*now, *last) == 0;
        last = std::move(now);
        if (!still) std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return still;
    });
}

namespace {

// left, right, top, bottom of a four-cardinal property, as xprop prints it.
std::optional<std::array<double, 4>> extentsByXprop(XvfbSession& session, uint32_t window, const char* property) {
    const std::string text = session.run({"xprop", "-id", std::to_string(window), property});
    std::smatch m;
    if (!std::regex_search(text, m, std::regex(R"(= (\d+), (\d+), (\d+), (\d+))"))) return std::nullopt;
    return std::array<double, 4>{std::stod(m[1]), std::stod(m[2]), std::stod(m[3]), std::stod(m[4])};
}

}  // namespace

Rect outerRectByTools(XvfbSession& session, uint32_t window) {
    const std::string info = session.run({"xwininfo", "-id", std::to_string(window)});
    const double border = static_cast<double>(fieldOf(info, "Border width"));
    // xwininfo's absolute corner is the outer corner of the border.
    return {static_cast<double>(fieldOf(info, "Absolute upper-left X")),
            static_cast<double>(fieldOf(info, "Absolute upper-left Y")),
            static_cast<double>(fieldOf(info, "Width")) + 2 * border,
            static_cast<double>(fieldOf(info, "Height")) + 2 * border};
}

Rect frameByTools(XvfbSession& session, uint32_t client) {
    Rect r = outerRectByTools(session, client);
    const auto margins = extentsByXprop(session, client, "_GTK_FRAME_EXTENTS");
    const auto extents = extentsByXprop(session, client, "_NET_FRAME_EXTENTS");
    if (!margins && !extents) return outerRectByTools(session, topLevelOf(session.connection(), client));
    for (const auto& [e, sign] : {std::pair{margins, -1.0}, std::pair{extents, 1.0}})
        if (e) r = {r.x - sign * (*e)[0], r.y - sign * (*e)[2], r.width + sign * ((*e)[0] + (*e)[1]),
                    r.height + sign * ((*e)[2] + (*e)[3])};
    return r;
}

xcb_atom_t internAtom(xcb_connection_t* c, const std::string& name) {
    auto* r = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(name.size()), name.c_str()), nullptr);
    const xcb_atom_t a = r ? r->atom : xcb_atom_t{XCB_ATOM_NONE};
    free(r);
    return a;
}

void activateWindow(xcb_connection_t* c, xcb_window_t client) {
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = client;
    event.type = internAtom(c, "_NET_ACTIVE_WINDOW");
    event.data.data32[0] = 2;  // source: a pager, which managers obey without focus-stealing checks
    event.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(c, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    xcb_flush(c);
}

xcb_window_t topLevelOf(xcb_connection_t* c, xcb_window_t window) {
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    xcb_window_t w = window;
    for (;;) {
        auto* tree = xcb_query_tree_reply(c, xcb_query_tree(c, w), nullptr);
        if (!tree) return XCB_NONE;
        const xcb_window_t parent = tree->parent;
        free(tree);
        if (parent == root) return w;
        w = parent;
    }
}

xcb_window_t makeFilledWindow(xcb_connection_t* c, int depth, int x, int y, int width, int height,
                              uint32_t pixel, const std::string& title) {
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    xcb_visualid_t visual = screen->root_visual;
    xcb_colormap_t colormap = screen->default_colormap;
    if (depth != screen->root_depth) {
        for (auto d = xcb_screen_allowed_depths_iterator(screen); d.rem; xcb_depth_next(&d))
            if (d.data->depth == depth && xcb_depth_visuals_length(d.data) > 0)
                visual = xcb_depth_visuals(d.data)[0].visual_id;
        colormap = xcb_generate_id(c);
        xcb_create_colormap(c, XCB_COLORMAP_ALLOC_NONE, colormap, screen->root, visual);
    }
    const xcb_window_t w = xcb_generate_id(c);
    const uint32_t values[] = {pixel, 0, colormap};
    xcb_create_window(c, static_cast<uint8_t>(depth), w, screen->root, static_cast<int16_t>(x),
                      static_cast<int16_t>(y), static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_COLORMAP, values);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        static_cast<uint32_t>(title.size()), title.c_str());
    xcb_map_window(c, w);
    xcb_flush(c);
    return w;
}

long differingPixels(const Image& a, const Image& b) {
    if (a.width != b.width || a.height != b.height) return -1;
    long count = 0;
    for (size_t i = 0; i < a.pixels.size(); i += 4)
        if (std::memcmp(&a.pixels[i], &b.pixels[i], 4) != 0) ++count;
    return count;
}

std::optional<Image> xwdPicture(XvfbSession& session, xcb_window_t window) {
    char path[] = "/tmp/pv-xwd-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return std::nullopt;
    close(fd);
    std::optional<Image> image;
    try {
        session.run({"xwd", "-silent", "-id", std::to_string(window), "-out", path});
        session.run({"convert", std::string("xwd:") + path, "-alpha", "off", std::string("png32:") + path});
        image = readPNG(path, nullptr);
    } catch (const std::exception&) {
    }
    std::remove(path);
    return image;
}

Image cropped(const Image& image, int x, int y, int width, int height) {
    Image out(width, height);
    for (int row = 0; row < height; ++row)
        std::memcpy(out.row(row), image.row(y + row) + 4 * x, static_cast<size_t>(width) * 4);
    return out;
}

namespace {

sockaddr_un socketAddress(const std::string& path, bool abstract) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + (abstract ? 1 : 0), path.data(), path.size());
    return address;
}

socklen_t addressLength(const std::string& path, bool abstract) {
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + (abstract ? 1 : 0));
}

}  // namespace

DyingDisplay::DyingDisplay(const std::string& serverDisplay, size_t budget) {
    // An abstract socket named like a display's, where clients look first;
    // the first free number from 600 on.
    listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    for (int n = 600; n < 700 && display_.empty(); ++n) {
        const std::string name = "/tmp/.X11-unix/X" + std::to_string(n);
        const sockaddr_un address = socketAddress(name, true);
        if (::bind(listener_, reinterpret_cast<const sockaddr*>(&address), addressLength(name, true)) == 0)
            display_ = ":" + std::to_string(n);
    }
    if (display_.empty() || ::listen(listener_, 1) != 0) throw std::runtime_error("no free display number");
    thread_ = std::thread(&DyingDisplay::serve, this, "/tmp/.X11-unix/X" + serverDisplay.substr(1), budget);
}

DyingDisplay::~DyingDisplay() {
    stop_ = true;
    thread_.join();
    ::close(listener_);
}

void DyingDisplay::serve(std::string serverSocket, size_t budget) {
    pollfd waiting{listener_, POLLIN, 0};
    while (!stop_ && ::poll(&waiting, 1, 50) == 0) {}
    if (stop_) return;
    const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = socketAddress(serverSocket, false);
    if (client < 0 || ::connect(server, reinterpret_cast<const sockaddr*>(&address),
                                addressLength(serverSocket, false)) != 0) {
        ::close(client);
        ::close(server);
        return;
    }
    // The server's bytes that may still pass: its setup reply (its length is
    // in the reply's first 8 bytes) and then the budget.
    std::vector<uint8_t> head;
    size_t allowed = SIZE_MAX;
    bool open = true;
    while (open && !stop_) {
        pollfd fds[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
        if (::poll(fds, 2, 50) <= 0) continue;
        uint8_t buffer[4096];
        if (fds[0].revents) {
            const ssize_t n = ::read(client, buffer, sizeof buffer);
            open = n > 0 && ::write(server, buffer, static_cast<size_t>(n)) == n;
        }
        if (open && fds[1].revents) {
            ssize_t n = ::read(server, buffer, sizeof buffer);
            if (n <= 0) break;
            for (ssize_t i = 0; i < n && head.size() < 8; ++i) head.push_back(buffer[i]);
            if (allowed == SIZE_MAX && head.size() == 8)
                allowed = 8 + 4 * static_cast<size_t>(head[6] | head[7] << 8) + budget;
            if (allowed != SIZE_MAX) n = std::min<ssize_t>(n, static_cast<ssize_t>(allowed));
            if (::write(client, buffer, static_cast<size_t>(n)) != n) break;
            if (allowed != SIZE_MAX) {
                allowed -= static_cast<size_t>(n);
                open = allowed != 0;
            }
        }
    }
    ::shutdown(client, SHUT_RDWR);
    ::close(client);
    ::close(server);
}

}  // namespace pv::test
