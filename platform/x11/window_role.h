#pragma once
// What a window's EWMH type and state say about it: the layer its kind lives
// in, and for the desktop shell's own windows the owner (and title) under
// which the inventory's system-window rules recognise them. The layer a
// window is finally reported in also follows the real stacking order
// (stackingLevels below).

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pv::x11 {

// Layer numbers, lowest at the back.
inline constexpr int32_t kDesktopLayer = INT32_MIN + 20;
inline constexpr int32_t kBelowLayer = -1;
inline constexpr int32_t kNormalLayer = 0;
inline constexpr int32_t kFloatingLayer = 3;
inline constexpr int32_t kModalLayer = 8;
inline constexpr int32_t kDockLayer = 20;
inline constexpr int32_t kFullscreenLayer = 21;  // an active fullscreen window covers the panels
inline constexpr int32_t kNotificationLayer = 25;
inline constexpr int32_t kMenuLayer = 101;
inline constexpr int32_t kTooltipLayer = 200;
inline constexpr int32_t kDragLayer = 500;

inline constexpr const char* kDockOwner = "Dock";
inline constexpr const char* kDesktopOwner = "Window Server";
inline constexpr const char* kDesktopTitle = "Desktop";
inline constexpr const char* kNotificationOwner = "SystemUIServer";

struct WindowRole {
    int32_t layer = kNormalLayer;
    std::optional<std::string> owner;  // set for docks, the desktop and notifications
    std::optional<std::string> title;  // set for the desktop
};

// typeNames: the atom names of _NET_WM_WINDOW_TYPE in order of preference;
// stateNames: those of _NET_WM_STATE. An override-redirect window without a
// type we know is a pop-up (menu layer).
WindowRole windowRole(const std::vector<std::string>& typeNames, const std::vector<std::string>& stateNames,
                      bool overrideRedirect = false);

// A bar, toolbar or tab bar that the window manager draws itself: a system
// window under the dock's owner.
WindowRole windowManagerBarRole();

// The layers to report for windows listed front to back, given the layer of
// each one's kind: strictly decreasing along the list, so that sorting by
// layer, stable or not and whatever the order before, gives the stacking
// order. Each window keeps its kind's layer unless the window in front of it
// has that layer or a lower one; then it takes one less. So the frontmost
// window of each kind carries the kind's layer (a fullscreen window in front
// of a panel keeps kFullscreenLayer, the panel behind it drops below).
std::vector<int32_t> stackingLevels(const std::vector<int32_t>& kindLayers);

}  // namespace pv::x11
