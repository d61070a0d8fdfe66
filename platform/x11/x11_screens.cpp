#include "platform/x11/x11_screens.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <tuple>

#include "platform/x11/edid_name.h"

namespace pv::x11 {
namespace {

constexpr double kReferenceDpi = 96.0;
constexpr uint32_t kWholeRootMonitorId = 1;

bool hasMonitorRequests(X11Connection& conn) {
    auto version = conn.get(xcb_randr_query_version_reply, xcb_randr_query_version(conn.raw(), 1, 5));
    return version && (version->major_version > 1 || version->minor_version >= 5);
}

std::vector<X11Monitor> activeMonitors(X11Connection& conn) {
    std::vector<X11Monitor> monitors;
    auto reply = conn.get(xcb_randr_get_monitors_reply, xcb_randr_get_monitors(conn.raw(), conn.root(), 1));
    if (!reply) return monitors;
    for (auto it = xcb_randr_get_monitors_monitors_iterator(reply.get()); it.rem > 0;
         xcb_randr_monitor_info_next(&it)) {
        const xcb_randr_monitor_info_t* info = it.data;
        X11Monitor m;
        m.box = {info->name, info->x, info->y, info->width, info->height};
        m.primary = info->primary != 0;
        const xcb_randr_output_t* outputs = xcb_randr_monitor_info_outputs(info);
        m.outputs.assign(outputs, outputs + xcb_randr_monitor_info_outputs_length(info));
        if (m.box.id != 0 && m.box.width > 0 && m.box.height > 0) monitors.push_back(std::move(m));
    }
    return monitors;
}

// When no monitor says it is primary, the one showing the primary output is.
void markPrimaryByOutput(X11Connection& conn, std::vector<X11Monitor>& monitors) {
    if (std::any_of(monitors.begin(), monitors.end(), [](const X11Monitor& m) { return m.primary; })) return;
    auto reply = conn.get(xcb_randr_get_output_primary_reply, xcb_randr_get_output_primary(conn.raw(), conn.root()));
    if (!reply || reply->output == XCB_NONE) return;
    for (X11Monitor& m : monitors) {
        if (std::find(m.outputs.begin(), m.outputs.end(), reply->output) != m.outputs.end()) {
            m.primary = true;
            return;
        }
    }
}

X11Monitor wholeRoot(const xcb_screen_t* screen) {
    X11Monitor m;
    m.box = {kWholeRootMonitorId, 0, 0, screen->width_in_pixels, screen->height_in_pixels};
    m.primary = true;
    return m;
}

std::optional<std::vector<uint8_t>> readEdid(X11Connection& conn, xcb_randr_output_t output) {
    const xcb_atom_t edidAtom = conn.atom("EDID");
    auto reply = conn.get(xcb_randr_get_output_property_reply,
                          xcb_randr_get_output_property(conn.raw(), output, edidAtom, XCB_ATOM_ANY, 0, 256, 0, 0));
    if (!reply || reply->format != 8 || reply->num_items == 0) return std::nullopt;
    const uint8_t* data = xcb_randr_get_output_property_data(reply.get());
    return std::vector<uint8_t>(data, data + xcb_randr_get_output_property_data_length(reply.get()));
}

}  // namespace

void orderMainFirst(std::vector<X11Monitor>& monitors) {
    const auto mainFirst =
        std::find_if(monitors.begin(), monitors.end(), [](const X11Monitor& m) { return m.primary; });
    if (mainFirst != monitors.end()) std::rotate(monitors.begin(), mainFirst, mainFirst + 1);
    if (monitors.empty()) return;
    std::stable_sort(monitors.begin() + 1, monitors.end(), [](const X11Monitor& a, const X11Monitor& b) {
        return std::tie(a.box.x, a.box.y) < std::tie(b.box.x, b.box.y);
    });
}

std::vector<X11Monitor> readMonitors(X11Connection& conn) {
    std::vector<X11Monitor> monitors;
    if (hasMonitorRequests(conn)) monitors = activeMonitors(conn);
    if (monitors.empty()) return {wholeRoot(conn.screen())};
    markPrimaryByOutput(conn, monitors);
    orderMainFirst(monitors);
    return monitors;
}

double backingScaleFromResources(const std::string& resources) {
    std::istringstream lines(resources);
    std::string line;
    while (std::getline(lines, line)) {
        const std::string key = "Xft.dpi:";
        if (line.compare(0, key.size(), key) != 0) continue;
        // Xft.dpi alone also sets a font size (100, 120, ...); only whole
        // multiples of 96 say that the desktop draws at a larger scale.
        const double dpi = std::strtod(line.c_str() + key.size(), nullptr);
        const double scale = dpi / kReferenceDpi;
        if (scale >= 1 && scale == std::floor(scale)) return scale;
        return 1.0;
    }
    return 1.0;
}

double readBackingScale(X11Connection& conn) {
    auto resources = conn.readBytes(conn.root(), conn.atom("RESOURCE_MANAGER"), XCB_ATOM_STRING);
    return resources ? backingScaleFromResources(*resources) : 1.0;
}

std::optional<std::string> readProductName(X11Connection& conn, const X11Monitor& monitor) {
    for (xcb_randr_output_t output : monitor.outputs) {
        if (auto edid = readEdid(conn, output))
            if (auto name = edidMonitorName(*edid)) return name;
    }
    return std::nullopt;
}

bool displayIsXwayland(X11Connection& conn) {
    const std::string extension = "XWAYLAND";
    auto ext = conn.get(xcb_query_extension_reply,
                        xcb_query_extension(conn.raw(), static_cast<uint16_t>(extension.size()), extension.c_str()));
    if (ext && ext->present) return true;
    if (!hasMonitorRequests(conn)) return false;
    for (const X11Monitor& m : activeMonitors(conn)) {
        auto name = conn.get(xcb_get_atom_name_reply, xcb_get_atom_name(conn.raw(), m.box.id));
        if (!name) continue;
        const std::string text(xcb_get_atom_name_name(name.get()),
                               static_cast<size_t>(xcb_get_atom_name_name_length(name.get())));
        if (text.rfind(extension, 0) == 0) return true;
    }
    return false;
}

}  // namespace pv::x11
