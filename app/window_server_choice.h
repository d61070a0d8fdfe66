#pragma once
// The window server a front end works on: a fixture desktop file, or the X
// display named by $DISPLAY.

#include <memory>
#include <string>

#include "platform/window_server.h"

namespace pv {

// desktop: a fixture desktop JSON file; empty: the X display. nullptr with a
// one-line reason in *error when neither can be opened.
std::unique_ptr<WindowServer> openWindowServer(const std::string& desktop, std::string* error);

}  // namespace pv
