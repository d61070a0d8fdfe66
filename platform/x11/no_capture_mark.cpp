#include "platform/x11/no_capture_mark.h"

#include <cstdlib>
#include <cstring>

#include "platform/x11/x11_connection.h"

namespace pv::x11 {

bool hasNoCaptureMark(X11Connection& conn, xcb_window_t window) {
    return conn.hasProperty(window, conn.atom(kNoCaptureProperty));
}

}  // namespace pv::x11

namespace pv {

void markWindowNoCapture(xcb_connection_t* connection, uint32_t window) {
    const char* name = x11::kNoCaptureProperty;
    xcb_intern_atom_reply_t* atom = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
    if (!atom) return;
    const uint32_t on = 1;
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, atom->atom, XCB_ATOM_CARDINAL, 32, 1, &on);
    xcb_flush(connection);
    std::free(atom);
}

}  // namespace pv
