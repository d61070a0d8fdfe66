#pragma once
// What the subcommands share: the window server they work on, and their one
// line per failure.

#include <memory>
#include <string>

#include "platform/window_server.h"

namespace pv::cli {

// "<command>: <text>" on standard error, as one line whatever the text holds.
void printFailure(const std::string& command, const std::string& text);

// The fixture desktop file, or the X display when desktop is empty. nullptr
// after printing one line, with the exit code in *exitCode: 2 for a fixture
// that cannot be used, 1 for a display that cannot be reached or memory that
// runs out while the fixture's pictures are made.
std::unique_ptr<WindowServer> openServerFor(const std::string& command, const std::string& desktop, int* exitCode);

}  // namespace pv::cli
