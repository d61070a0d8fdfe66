#pragma once
// Which process made a window, and what that process is called.

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/x11/x11_connection.h"

namespace pv::x11 {

// Numbers from here up never name a real process (Linux pids stay below 2^22).
inline constexpr int32_t kDerivedClientBase = 1 << 30;

// The pid the X-Resource extension knows for the window's client (when
// hasXRes), else the one _NET_WM_PID states, else clientNumber(). The server's
// answer comes first: a client in a pid namespace (a sandboxed application)
// states its pid inside that namespace, which names another process here.
int32_t windowOwnerPid(X11Connection& conn, xcb_window_t window, bool hasXRes);

// A stable number for the X client that created window, from the resource-id
// base the server gave that client: windows of one client share it, windows
// of different clients never do.
int32_t clientNumber(uint32_t window, uint32_t resourceIdMask);

// The kernel's name of a local process (/proc/PID/comm); nullopt when unknown.
std::optional<std::string> processName(int32_t pid);

// The path of a local process's executable (/proc/PID/exe), else its name;
// nullopt when unknown.
std::optional<std::string> processExecutable(int32_t pid);

}  // namespace pv::x11
