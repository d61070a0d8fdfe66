#pragma once
// KWin's report of its screens and windows (platform/kwin/list_windows.js), and
// the window list entries made from it. Plain C++: no Qt, no D-Bus.

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/window_server.h"

namespace pv::kwin {

// Global logical coordinates of KWin: top-down points, origin at the top-left
// corner of the whole layout's coordinate space.
using GlobalRect = Rect;

struct KWinScreen {
    std::string name;  // Plasma 6: the output's name; 5.27: its number
    GlobalRect geometry;
    double scale = 1.0;  // 5.27 does not tell scripts; 1 there
};

struct KWinWindow {
    std::string id;  // internalId, "{uuid}": what ScreenShot2 takes
    GlobalRect frame;
    GlobalRect buffer;  // the client's buffer: larger than the frame where it draws its own shadow
    std::string caption, resourceClass, resourceName, desktopFileName;
    int32_t pid = 0;  // 0 for X clients that do not state theirs
    bool x11 = false;
    bool dock = false, desktop = false, notification = false, onScreenDisplay = false, popup = false;
    bool minimized = false, onCurrentDesktop = true, hidden = false;
    bool keepAbove = false, keepBelow = false, fullScreen = false;
};

struct KWinListing {
    int api = 0;  // 5: KWin 5.27's scripting; 6: Plasma 6's
    std::vector<KWinScreen> screens;
    std::vector<KWinWindow> windows;  // bottom of the stack first
};

struct ListingError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Parses the script's JSON; throws ListingError when it is not a listing.
KWinListing parseListing(const std::string& json);

// Shown on the current desktop: not minimised, hidden, or on another desktop
// (KWin would still give pictures of those, or none at all for minimised ones).
bool isShown(const KWinWindow& w);

struct ListedWindow {
    WindowListEntry entry;
    KWinWindow window;
};

struct EntryRules {
    GlobalRect mainScreen;  // the main screen's frame: its top-left becomes (0, 0)
    int32_t ownPid = 0;     // this process's windows are listed as not to be captured
    // The inventory number of a window id, the same for the life of the server.
    std::function<uint32_t(const std::string& id)> numberOf;
    // The application's name, from its desktop entry or the process.
    std::function<std::string(const KWinWindow&)> applicationName;
};

// The shown windows, frontmost first, as window list entries: system windows
// under the owners the inventory rules know (docks "Dock", the desktop window
// "Window Server" titled "Desktop", notifications and on-screen displays
// "SystemUIServer"), layers falling strictly along the stacking, bounds
// relative to the main screen, clients that state no pid one stand-in number
// per application, and our own windows with sharing state 0.
std::vector<ListedWindow> listedWindows(const KWinListing& listing, const EntryRules& rules);

}  // namespace pv::kwin
