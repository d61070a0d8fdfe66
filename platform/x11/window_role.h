#pragma once
// What a window's EWMH type and state say about it: the layer it is reported
// in, and for the desktop shell's own windows the owner (and title) under
// which the inventory's system-window rules recognise them.

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
// stateNames: those of _NET_WM_STATE.
WindowRole windowRole(const std::vector<std::string>& typeNames, const std::vector<std::string>& stateNames);

}  // namespace pv::x11
