#pragma once
// The inventory: a tree of the screens, and under each screen the applications
// and windows on it, rebuilt from the window server on every refresh.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "inventory/window_element.h"
#include "platform/window_server.h"

namespace pv {

// Measures of the screens of the last refresh, read by the capture and
// document code to turn window-server points into canvas pixels.
struct ScreenMeasures {
    float maxBackingScale = 0;   // largest backing scale of the screens taken
    float mainScreenHeight = 0;  // main screen's height in points; kept when no screen is seen
};

class Inventory {
public:
    explicit Inventory(WindowServer& server);

    PVWindowElement::Ptr root;
    ScreenMeasures measures;
    bool ignoreSystemWindows = false;
    // Owners left out altogether when ignoreSystemWindows is on.
    const std::vector<std::string> unwantedProcesses{"Finder", "Dock", "Window Server", "SystemUIServer"};

    // A new root with one node for each screen, main screen first.
    void refreshScreenList();
    // Files the on-screen windows under application nodes of every screen they touch.
    void refreshWindows();
    bool isUnwanted(const std::optional<std::string>& ownerName) const;

private:
    void fileWindow(const WindowListEntry& entry, uint32_t listPosition);
    void pruneEmptyApplications();

    WindowServer& server_;
};

// The display's product name, or "Display" when it reports none.
std::string displayProductName(WindowServer& server, uint32_t displayId);

}  // namespace pv
