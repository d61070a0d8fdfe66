#pragma once
// Our GNOME Shell extension's report of the screens and windows
// (platform/gnome/extension/core.js, ListWindows), put into the compositor
// listing the KDE Plasma backend lists from, so that both share the rules for
// roles, stacking, own windows and stand-in pids; and what the shell says
// about the extension, turned into the one line a user is shown. Plain C++:
// no Qt, no D-Bus.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/kwin/kwin_windows.h"
#include "platform/window_pictures.h"

namespace pv::gnome {

inline constexpr const char* kExtensionUuid = "plenavue-shell@veltrano.com";
inline constexpr uint32_t kApiVersion = 1;  // the extension's ApiVersion this program speaks

struct Application {
    std::string name;
    std::string icon;  // an icon-theme name or an absolute path; empty when the shell knows none
};

struct GnomeListing {
    kwin::KWinListing listing;                        // main screen first; windows bottom of the stack first
    std::map<std::string, Application> applications;  // by window id
};

// Parses ListWindows' JSON; throws kwin::ListingError when it is not a listing.
GnomeListing parseListing(const std::string& json);

// What the shell and the extension say, gathered before a capture.
struct ExtensionReport {
    bool shellPresent = false;  // org.gnome.Shell on the session bus
    bool serving = false;       // the extension's bus name has an owner
    // GetExtensionInfo: nullopt when the shell does not know the extension.
    std::optional<int> state;          // 1 enabled, 2 disabled, 3 error, 4 out of date, 6 initialised
    std::string error;                 // the shell's reason for state 3
    uint32_t apiVersion = 0;           // the running extension's, 0 when not serving
    std::vector<std::string> allowed;  // its metadata's allowed-executables
    std::string self;                  // this program's executable
};

// None when the extension serves this program; otherwise what is wrong and
// what to do, as one line.
Failure extensionProblem(const ExtensionReport& report);

}  // namespace pv::gnome
