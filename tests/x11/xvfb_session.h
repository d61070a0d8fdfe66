#pragma once
// A private X server for one test: Xvfb (-noreset, so RandR monitors stay) on a
// display number it picks itself, optionally RandR monitors, X resources, a
// real window manager and a compositor, and real X clients started at known
// places. Programs run with a private HOME, so that window managers neither
// read nor write the developer's settings. Everything started here (with
// whatever it started in turn) is stopped when the session ends.

#include <sys/types.h>
#include <xcb/xcb.h>

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace pv::test {

struct MonitorSpec {
    std::string name;
    int x = 0, y = 0, width = 0, height = 0;
    bool ownsOutput = false;  // takes over Xvfb's one output (and with it its primary mark)
};

enum class WindowManager {
    None,
    Openbox,
    Xfwm4,     // with its compositor
    Metacity,  // with its compositor
    Marco,     // with its compositor
    KWin,      // kwin_x11, compositing
    I3,        // with i3bar at the top
    Fluxbox,   // toolbar without a clock, no wallpaper, two desktops
};

enum class Compositor {
    None,
    Picom,             // xrender backend
    PicomUnredirect,   // the same, with --unredir-if-possible
    Xcompmgr,
};

struct XvfbOptions {
    XvfbOptions(int w = 1600, int h = 1000, bool openbox = false, std::vector<MonitorSpec> m = {})
        : width(w), height(h), windowManager(openbox), monitors(std::move(m)) {}

    int width;
    int height;
    bool windowManager;  // openbox, when manager says nothing else
    std::vector<MonitorSpec> monitors;
    WindowManager manager = WindowManager::None;
    Compositor compositor = Compositor::None;
    std::string resources;  // the root's RESOURCE_MANAGER, e.g. "Xft.dpi:\t192\n"
};

// A short name for test names and messages ("xfwm4", "picom").
std::string nameOf(WindowManager manager);
std::string nameOf(Compositor compositor);

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
    void stop(pid_t pid);
    // Runs a program to its end; its standard output, or throws when it fails.
    std::string run(const std::vector<std::string>& argv);

    // Ends the X server abruptly, as a crash or a logout would.
    void killServer();

    // Polls check until it holds; false when it did not within the limit.
    static bool waitFor(const std::function<bool()>& check,
                        std::chrono::milliseconds limit = std::chrono::seconds(10));

    // True while some client owns the compositing-manager selection.
    bool compositing() const;
    const std::string& home() const { return home_; }

private:
    void startServer(const XvfbOptions& options);
    void startWindowManager(WindowManager manager);
    void startCompositor(Compositor compositor);
    void setMonitors(const std::vector<MonitorSpec>& monitors);
    void setResources(const std::string& resources);
    std::string writeHomeFile(const std::string& name, const std::string& text);

    std::string display_;
    std::string home_;
    pid_t server_ = -1;
    std::vector<pid_t> children_;
    xcb_connection_t* conn_ = nullptr;
};

}  // namespace pv::test
