#pragma once
// The subcommands of the plenavue executable.

#include <optional>
#include <string>

namespace pv::cli {

struct ListOptions {
    std::string desktop;  // fixture desktop JSON; empty: the X display
    bool json = false;
    bool ignoreSystem = false;
};

// Prints the inventory; returns the process exit code.
int runList(const ListOptions& options);

}  // namespace pv::cli
