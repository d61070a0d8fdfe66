#pragma once
// An independent picture of one window: taken by the xwd program and decoded
// by ImageMagick, neither of which shares code with ours.

#include <xcb/xcb.h>

#include <optional>
#include <string>

#include "platform/image.h"
#include "tests/x11/xvfb_session.h"

namespace pv::test {

// The window's pixels as xwd dumps them, opaque; nullopt when xwd or convert fails.
std::optional<Image> xwdPicture(XvfbSession& session, xcb_window_t window);

// An RGB portable pixmap (P6, comments allowed) as an opaque picture.
std::optional<Image> decodePPM(const std::string& bytes);

}  // namespace pv::test
