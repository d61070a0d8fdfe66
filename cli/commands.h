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

struct CaptureOptions {
    std::string desktop;                // fixture desktop JSON; empty: the X display
    std::optional<std::string> format;  // grouped, ungrouped or png
    std::optional<std::string> outputFolder;
    std::optional<std::string> file;
    std::optional<bool> shadow;
    std::optional<bool> ignoreSystem;
    bool quiet = false;
};

// Captures everything into one file and prints its path; returns the exit code.
int runCapture(const CaptureOptions& options);

}  // namespace pv::cli
