#pragma once
// The mark by which the application's own windows stay out of every capture:
// a property on the window that the window server reports as sharing state 0.

#include <xcb/xcb.h>

#include <cstdint>

namespace pv::x11 {

class X11Connection;

inline constexpr const char* kNoCaptureProperty = "_PLENAVUE_NO_CAPTURE";

// Whether window carries the mark.
bool hasNoCaptureMark(X11Connection& conn, xcb_window_t window);

}  // namespace pv::x11

namespace pv {

// Marks window (a client window of this application) so that it is left out of
// captures. Works on any xcb connection, for instance the one Qt uses.
void markWindowNoCapture(xcb_connection_t* connection, uint32_t window);

}  // namespace pv
