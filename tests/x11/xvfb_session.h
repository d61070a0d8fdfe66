#pragma once
// A private X server for one test: Xvfb (-noreset, so RandR monitors stay) on a
// display number it picks itself, optionally RandR monitors, X resources, a
// real window manager and a compositor, and real X clients started at known
// places. Programs run with a private HOME, so that window managers neither
// read nor write the developer's settings. Everything started here (with
// whatever it started in turn) is stopped when the session ends.

#include <sys/types.h>
#include <xcb/xcb.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/process.h"

namespace pv::test {

struct MonitorSpec {
    std::string name;
    int x = 0, y = 0, width = 0, height = 0;
    bool ownsOutput = false;  // takes over Xvfb's one output (and with it its primary mark)
};

// Managers marked "composites" run their own compositor.
enum class WindowManager { None, Openbox, Xfwm4, Metacity, Marco, KWin, I3, Fluxbox };
enum class Compositor { None, Picom, PicomUnredirect, Xcompmgr };

struct XvfbOptions {
    XvfbOptions(int w = 1600, int h = 1000, bool openbox = false, std::vector<MonitorSpec> m = {})
        : width(w),
          height(h),
          monitors(std::move(m)),
          manager(openbox ? WindowManager::Openbox : WindowManager::None) {}

    int width;
    int height;
    std::vector<MonitorSpec> monitors;
    WindowManager manager;
    Compositor compositor = Compositor::None;
    std::string resources;  // the root's RESOURCE_MANAGER, e.g. "Xft.dpi:\t192\n"
};

class XvfbSession {
public:
    explicit XvfbSession(XvfbOptions options = {});
    ~XvfbSession();
    XvfbSession(const XvfbSession&) = delete;
    XvfbSession& operator=(const XvfbSession&) = delete;

    const std::string& display() const { return display_; }
    // Our own connection to the server, for making and changing windows.
    xcb_connection_t* connection() const { return conn_; }
    xcb_window_t root() const;

    // Starts a program with DISPLAY pointing here; stopped with the session.
    pid_t start(const std::vector<std::string>& argv);
    // Runs a program to its end; its standard output, or throws when it fails.
    std::string run(const std::vector<std::string>& argv);

    // Ends the X server abruptly, as a crash or a logout would.
    void killServer();

    static bool waitFor(const std::function<bool()>& check,
                        std::chrono::milliseconds limit = std::chrono::seconds(10)) {
        return test::waitFor(check, limit);
    }

private:
    // True while some client owns the compositing-manager selection.
    bool compositing() const;
    void startWindowManager(WindowManager manager);
    void setMonitors(const std::vector<MonitorSpec>& monitors);
    void writeHomeFile(const std::string& name, const std::string& text);
    void waitUntil(const std::function<bool()>& ready, const std::string& what);
    void end();
    SpawnOptions options() const;

    std::string display_;
    std::string home_;
    pid_t server_ = -1;
    std::vector<pid_t> children_;
    xcb_connection_t* conn_ = nullptr;
};

xcb_atom_t internAtom(xcb_connection_t* c, const std::string& name);

}  // namespace pv::test
