#pragma once
// A private X server for one test: Xvfb on a display number it picks itself,
// optionally openbox and RandR monitors, and real X clients started at known
// places. Everything started here is stopped when the session ends.

#include <sys/types.h>
#include <xcb/xcb.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace pv::test {

struct MonitorSpec {
    std::string name;
    int x = 0, y = 0, width = 0, height = 0;
    bool ownsOutput = false;  // takes over Xvfb's one output (and with it its primary mark)
};

struct XvfbOptions {
    int width = 1600;
    int height = 1000;
    bool windowManager = false;
    std::vector<MonitorSpec> monitors;
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
    void stop(pid_t pid);
    // Runs a program to its end; its standard output, or throws when it fails.
    std::string run(const std::vector<std::string>& argv);

    // Ends the X server abruptly, as a crash or a logout would.
    void killServer();

    // Polls check until it holds; false when it did not within the limit.
    static bool waitFor(const std::function<bool()>& check,
                        std::chrono::milliseconds limit = std::chrono::seconds(10));

private:
    void startServer(const XvfbOptions& options);
    void startWindowManager();
    void setMonitors(const std::vector<MonitorSpec>& monitors);

    std::string display_;
    pid_t server_ = -1;
    std::vector<pid_t> children_;
    xcb_connection_t* conn_ = nullptr;
};

}  // namespace pv::test
