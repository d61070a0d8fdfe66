#include "platform/x11/window_role.h"

#include <algorithm>
#include <climits>

namespace pv::x11 {
namespace {

bool has(const std::vector<std::string>& names, const char* name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

WindowRole plainRole(int32_t layer) { return WindowRole{layer, std::nullopt, std::nullopt}; }

// The first type the window names that we know decides; none means normal.
std::optional<WindowRole> roleOfType(const std::string& type) {
    const std::string prefix = "_NET_WM_WINDOW_TYPE_";
    if (type.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
    const std::string t = type.substr(prefix.size());
    if (t == "DESKTOP") return WindowRole{kDesktopLayer, kDesktopOwner, kDesktopTitle};
    if (t == "DOCK") return WindowRole{kDockLayer, kDockOwner, std::nullopt};
    if (t == "NOTIFICATION") return WindowRole{kNotificationLayer, kNotificationOwner, std::nullopt};
    if (t == "DROPDOWN_MENU" || t == "POPUP_MENU" || t == "MENU" || t == "COMBO") return plainRole(kMenuLayer);
    if (t == "TOOLTIP") return plainRole(kTooltipLayer);
    if (t == "DND") return plainRole(kDragLayer);
    if (t == "TOOLBAR" || t == "UTILITY") return plainRole(kFloatingLayer);
    if (t == "NORMAL" || t == "DIALOG" || t == "SPLASH") return plainRole(kNormalLayer);
    return std::nullopt;
}

}  // namespace

WindowRole windowRole(const std::vector<std::string>& typeNames, const std::vector<std::string>& stateNames,
                      bool overrideRedirect) {
    WindowRole role;
    bool typed = false;
    for (const std::string& type : typeNames) {
        if (auto r = roleOfType(type)) {
            role = *r;
            typed = true;
            break;
        }
    }
    // Override-redirect windows stay out of the manager's stacking: menus,
    // tooltips and pop-ups that toolkits raise above everything.
    if (!typed && overrideRedirect) return plainRole(kMenuLayer);
    // States only move ordinary windows; the shell's windows keep their layer.
    if (role.layer == kNormalLayer) {
        if (has(stateNames, "_NET_WM_STATE_BELOW")) role.layer = kBelowLayer;
        if (has(stateNames, "_NET_WM_STATE_ABOVE")) role.layer = kFloatingLayer;
        if (has(stateNames, "_NET_WM_STATE_MODAL")) role.layer = kModalLayer;
        if (has(stateNames, "_NET_WM_STATE_FULLSCREEN")) role.layer = kFullscreenLayer;
    }
    return role;
}

WindowRole windowManagerBarRole() { return WindowRole{kDockLayer, kDockOwner, std::nullopt}; }

std::vector<int32_t> stackingLevels(const std::vector<int32_t>& kindLayers) {
    std::vector<int32_t> levels;
    levels.reserve(kindLayers.size());
    int64_t inFront = INT64_MAX;
    for (int32_t kind : kindLayers) {
        // Only a pile of windows under a desktop window could reach the bottom of
        // the range; X has no such stacking, and the lowest value is kept then.
        const int64_t level = std::max<int64_t>(std::min<int64_t>(kind, inFront - 1), INT32_MIN);
        levels.push_back(static_cast<int32_t>(level));
        inFront = level;
    }
    return levels;
}

}  // namespace pv::x11
