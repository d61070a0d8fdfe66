#pragma once
// The window server a front end works on, chosen at start:
//   - a fixture desktop file (--desktop FILE, or PLENAVUE_BACKEND=fixture with
//     PLENAVUE_DESKTOP=FILE);
//   - PLENAVUE_BACKEND=x11, kwin or gnome: that backend, whatever the session says;
//   - an X11 session: the X display named by $DISPLAY;
//   - a Wayland session (XDG_SESSION_TYPE, WAYLAND_DISPLAY, or an X display
//     that is Xwayland): KWin's backend when KWin is on the session bus,
//     GNOME Shell's (through our extension) when GNOME Shell is;
//     otherwise a window server that lists no window and refuses every
//     capture with one line saying the session and what would work, since
//     through Xwayland only the X clients could be seen.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/window_server.h"

class QCoreApplication;

namespace pv {
class LoopFailure;
}

namespace pv {

struct SessionFacts {
    bool wayland = false;
    std::string evidence;       // what says Wayland: "XDG_SESSION_TYPE=wayland", ...
    std::string desktop;        // XDG_CURRENT_DESKTOP (or XDG_SESSION_DESKTOP); empty when unknown
    std::string forced;         // PLENAVUE_BACKEND
    std::string waylandSocket;  // the compositor's socket path, when one is named
};

// The facts the environment gives (getenv: a variable's value, nullopt when unset).
SessionFacts sessionFrom(const std::function<std::optional<std::string>(const char*)>& getenv);
SessionFacts currentSession();

// The one line for a Wayland session we have no backend for.
Failure unsupportedSession(const SessionFacts& session);

// Whether the chosen backend needs the Qt application to exist before it is
// opened (it talks D-Bus, reads screens through Qt). The X11 one is tried
// before, since Qt ends the program when it finds no display.
bool opensAfterApplication(const std::string& desktop);

// The command line's Qt application: a QGuiApplication in a Wayland session
// whose compositor answers (KWin's backend reads the screens and their scales
// through Qt), else (GNOME too: its backend needs only D-Bus) a QCoreApplication. The compositor going away later ends
// the program with one line after `prefix`. Either way its event loop is
// guarded: an escaping exception ends it with one line, and `loop` says so.
struct CommandLineApplication {
    std::unique_ptr<QCoreApplication> app;
    const LoopFailure* loop = nullptr;
};
CommandLineApplication makeCommandLineApplication(int& argc, char** argv, const std::string& desktop,
                                                  const std::string& prefix);

// desktop: a fixture desktop JSON file; empty: the session's window server.
// nullptr with a one-line reason in *error when the chosen one cannot be
// opened. For a Wayland session without a backend, a server whose
// checkAccess() says Unsupported.
std::unique_ptr<WindowServer> openWindowServer(const std::string& desktop, std::string* error);

}  // namespace pv
