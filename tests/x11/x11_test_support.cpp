#include "tests/x11/x11_test_support.h"

#include <unistd.h>

#include <array>
#include <cstring>
#include <regex>
#include <stdexcept>
#include <thread>

#include "platform/png_io.h"

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
        if (e)
            r = {r.x - sign * (*e)[0], r.y - sign * (*e)[2], r.width + sign * ((*e)[0] + (*e)[1]),
                 r.height + sign * ((*e)[2] + (*e)[3])};
    return r;
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

xcb_window_t makeFilledWindow(xcb_connection_t* c, int depth, int x, int y, int width, int height, uint32_t pixel,
                              const std::string& title) {
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
    xcb_create_window(c, static_cast<uint8_t>(depth), w, screen->root, static_cast<int16_t>(x), static_cast<int16_t>(y),
                      static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      visual, XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_COLORMAP, values);
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

}  // namespace pv::test
