#pragma once
// The monitors of an X screen (RandR), their product names (EDID) and the
// backing scale (Xft.dpi).

#include <xcb/randr.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/x11/desktop_layout.h"
#include "platform/x11/x11_connection.h"

namespace pv::x11 {

struct X11Monitor {
    MonitorBox box;
    bool primary = false;
    std::vector<xcb_randr_output_t> outputs;
};

// Active RandR monitors, the primary first, the others left to right and,
// where they start at the same x, top to bottom. Without RandR monitors: the
// whole root as one monitor with id 1.
std::vector<X11Monitor> readMonitors(X11Connection& conn);
// That order over monitors whose primary flag is already settled (at most one set).
void orderMainFirst(std::vector<X11Monitor>& monitors);

// Pixels per point: Xft.dpi / 96 from the root's resource database when that
// is a whole number (96, 192, 288 dpi), else 1.
double readBackingScale(X11Connection& conn);
// The same rule over the text of a resource database.
double backingScaleFromResources(const std::string& resources);

// Whether the server is Xwayland: it has the XWAYLAND extension (Xwayland
// 23.1 and later) or names its monitors XWAYLAND<n> (all versions).
bool displayIsXwayland(X11Connection& conn);

// The EDID monitor name of the first of the monitor's outputs that states one.
std::optional<std::string> readProductName(X11Connection& conn, const X11Monitor& monitor);

}  // namespace pv::x11
