#include "tests/x11/xvfb_session.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace pv::test {
namespace {

// fork + exec with DISPLAY (and HOME) set, in a process group of its own;
// stdout to outFd when given, stderr silenced.
pid_t spawn(const std::vector<std::string>& argv, const std::string& display, const std::string& home,
            int outFd = -1, int keepFd = -1) {
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        setpgid(0, 0);
        if (!display.empty()) setenv("DISPLAY", display.c_str(), 1);
        if (!home.empty()) {
            setenv("HOME", home.c_str(), 1);
            setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
            setenv("XDG_CACHE_HOME", (home + "/.cache").c_str(), 1);
            setenv("XDG_DATA_HOME", (home + "/.local/share").c_str(), 1);
            setenv("XDG_RUNTIME_DIR", home.c_str(), 1);
        }
        unsetenv("DBUS_SESSION_BUS_ADDRESS");  // never the developer's session bus
        setenv("NO_AT_BRIDGE", "1", 1);        // GTK: no accessibility bus to look for
        const int devnull = open("/dev/null", O_RDWR);
        dup2(devnull, STDIN_FILENO);
        dup2(outFd >= 0 ? outFd : devnull, STDOUT_FILENO);
        dup2(devnull, STDERR_FILENO);
        if (keepFd >= 0) fcntl(keepFd, F_SETFD, 0);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

// Ends a program and whatever it started in its process group (a session bus,
// the services that bus started).
void terminate(pid_t pid) {
    if (pid <= 0) return;
    kill(-pid, SIGTERM);
    bool ended = false;
    for (int i = 0; i < 100 && !ended; ++i) {
        ended = waitpid(pid, nullptr, WNOHANG) == pid;
        if (!ended) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(-pid, SIGKILL);
    if (!ended) waitpid(pid, nullptr, 0);
}

std::string readDisplayNumber(int fd) {
    std::string text;
    pollfd p{fd, POLLIN, 0};
    while (text.find('\n') == std::string::npos && poll(&p, 1, 10000) > 0) {
        char buf[32];
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) break;
        text.append(buf, static_cast<size_t>(n));
    }
    if (text.find('\n') == std::string::npos) throw std::runtime_error("Xvfb did not start");
    return ":" + text.substr(0, text.find('\n'));
}

xcb_atom_t atomNamed(xcb_connection_t* c, const char* name) {
    auto* r = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(strlen(name)), name), nullptr);
    const xcb_atom_t atom = r ? r->atom : xcb_atom_t{XCB_ATOM_NONE};
    free(r);
    return atom;
}

// The manager has named its check window, and that window exists.
bool windowManagerReady(xcb_connection_t* c, xcb_window_t root) {
    const xcb_atom_t check = atomNamed(c, "_NET_SUPPORTING_WM_CHECK");
    auto* prop = xcb_get_property_reply(c, xcb_get_property(c, 0, root, check, XCB_ATOM_WINDOW, 0, 1), nullptr);
    xcb_window_t window = XCB_NONE;
    if (prop && xcb_get_property_value_length(prop) == 4) window = *static_cast<xcb_window_t*>(xcb_get_property_value(prop));
    free(prop);
    if (window == XCB_NONE) return false;
    auto* geometry = xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr);
    free(geometry);
    return geometry != nullptr;
}

// i3 with its bar at the top, no status program that changes, no wizard.
const char* const kI3Config = R"(# i3 config file (v4)
font pango:DejaVu Sans Mono 8
focus_follows_mouse no
bar {
  position top
  status_command echo plenavue
}
)";

// fluxbox without a wallpaper program (its default style runs one) and
// without the toolbar's clock, so that the screen holds still.
const char* const kFluxboxInit = R"(session.screen0.toolbar.tools: workspacename, iconbar
session.screen0.toolbar.visible: true
session.screen0.toolbar.placement: BottomCenter
session.screen0.rootCommand: true
session.screen0.workspaces: 2
session.styleOverlay: ~/.fluxbox/overlay
)";

}  // namespace

std::string nameOf(WindowManager manager) {
    switch (manager) {
        case WindowManager::None: return "none";
        case WindowManager::Openbox: return "openbox";
        case WindowManager::Xfwm4: return "xfwm4";
        case WindowManager::Metacity: return "metacity";
        case WindowManager::Marco: return "marco";
        case WindowManager::KWin: return "kwin";
        case WindowManager::I3: return "i3";
        case WindowManager::Fluxbox: return "fluxbox";
    }
    return "?";
}

std::string nameOf(Compositor compositor) {
    switch (compositor) {
        case Compositor::None: return "none";
        case Compositor::Picom: return "picom";
        case Compositor::PicomUnredirect: return "picom_unredir";
        case Compositor::Xcompmgr: return "xcompmgr";
    }
    return "?";
}

XvfbSession::XvfbSession(XvfbOptions options) {
    unsetenv("DISPLAY");  // nothing here may reach the developer's display
    char home[] = "/tmp/pv-xvfb-home-XXXXXX";
    if (!mkdtemp(home)) throw std::runtime_error("no private home");
    home_ = home;
    try {
        startServer(options);
        if (!options.monitors.empty()) setMonitors(options.monitors);
        if (!options.resources.empty()) setResources(options.resources);
        if (options.manager == WindowManager::None && options.windowManager) options.manager = WindowManager::Openbox;
        if (options.manager != WindowManager::None) startWindowManager(options.manager);
        if (options.compositor != Compositor::None) startCompositor(options.compositor);
    } catch (...) {
        for (auto it = children_.rbegin(); it != children_.rend(); ++it) terminate(*it);
        if (conn_) xcb_disconnect(conn_);
        terminate(server_);
        std::filesystem::remove_all(home_);
        throw;
    }
}

XvfbSession::~XvfbSession() {
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) terminate(*it);
    if (conn_) xcb_disconnect(conn_);
    terminate(server_);
    std::error_code ignored;
    std::filesystem::remove_all(home_, ignored);
}

xcb_window_t XvfbSession::root() const { return xcb_setup_roots_iterator(xcb_get_setup(conn_)).data->root; }

void XvfbSession::startServer(const XvfbOptions& o) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    const std::string screen = std::to_string(o.width) + "x" + std::to_string(o.height) + "x24";
    server_ = spawn({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", screen, "-nolisten", "tcp",
                     "-noreset", "+extension", "Composite", "+extension", "RANDR"},
                    "", "", -1, fds[1]);
    close(fds[1]);
    try {
        display_ = readDisplayNumber(fds[0]);
    } catch (...) {
        close(fds[0]);
        terminate(server_);
        throw;
    }
    close(fds[0]);
    conn_ = xcb_connect(display_.c_str(), nullptr);
    if (xcb_connection_has_error(conn_)) throw std::runtime_error("cannot reach the new Xvfb " + display_);
}

std::string XvfbSession::writeHomeFile(const std::string& name, const std::string& text) {
    const std::filesystem::path path = std::filesystem::path(home_) / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
    return path.string();
}

void XvfbSession::startWindowManager(WindowManager manager) {
    // The GNOME-family managers and kwin read their settings over a session bus.
    const std::vector<std::string> onBus{"dbus-run-session", "--"};
    const auto busAnd = [&](std::vector<std::string> argv) {
        argv.insert(argv.begin(), onBus.begin(), onBus.end());
        return argv;
    };
    bool composites = true;
    std::vector<std::string> argv;
    switch (manager) {
        case WindowManager::None: return;
        case WindowManager::Openbox: argv = {"openbox", "--sm-disable"}; composites = false; break;
        case WindowManager::Xfwm4: argv = busAnd({"xfwm4", "--compositor=on"}); break;
        case WindowManager::Metacity: argv = busAnd({"metacity", "--sm-disable", "--composite"}); break;
        case WindowManager::Marco: argv = busAnd({"marco", "--sm-disable", "--composite"}); break;
        case WindowManager::KWin: argv = busAnd({"kwin_x11"}); break;
        case WindowManager::I3:
            argv = {"i3", "-c", writeHomeFile(".config/i3/config", kI3Config)};
            composites = false;
            break;
        case WindowManager::Fluxbox:
            writeHomeFile(".fluxbox/overlay", "background: none\n");
            argv = {"fluxbox", "-rc", writeHomeFile(".fluxbox/init", kFluxboxInit)};
            composites = false;
            break;
    }
    start(argv);
    if (!waitFor([&] { return windowManagerReady(conn_, root()); }, std::chrono::seconds(30)))
        throw std::runtime_error(nameOf(manager) + " did not come up");
    // Clients decide at start whether the screen is composited (GTK draws its
    // shadow margins only then), so the compositor must be up first.
    if (composites && !waitFor([&] { return compositing(); }, std::chrono::seconds(30)))
        throw std::runtime_error(nameOf(manager) + " did not start compositing");
}

void XvfbSession::startCompositor(Compositor compositor) {
    switch (compositor) {
        case Compositor::None: return;
        case Compositor::Picom: start({"picom", "--backend", "xrender"}); break;
        case Compositor::PicomUnredirect: start({"picom", "--backend", "xrender", "--unredir-if-possible"}); break;
        case Compositor::Xcompmgr: start({"xcompmgr"}); break;
    }
    if (!waitFor([&] { return compositing(); }, std::chrono::seconds(30)))
        throw std::runtime_error(nameOf(compositor) + " did not start compositing");
}

bool XvfbSession::compositing() const {
    auto* owner = xcb_get_selection_owner_reply(conn_, xcb_get_selection_owner(conn_, atomNamed(conn_, "_NET_WM_CM_S0")),
                                                nullptr);
    const bool owned = owner && owner->owner != XCB_NONE;
    free(owner);
    return owned;
}

void XvfbSession::setResources(const std::string& resources) {
    xcb_change_property(conn_, XCB_PROP_MODE_REPLACE, root(), atomNamed(conn_, "RESOURCE_MANAGER"), XCB_ATOM_STRING, 8,
                        static_cast<uint32_t>(resources.size()), resources.data());
    free(xcb_get_input_focus_reply(conn_, xcb_get_input_focus(conn_), nullptr));
}

void XvfbSession::setMonitors(const std::vector<MonitorSpec>& monitors) {
    for (const MonitorSpec& m : monitors) {
        const std::string geometry = std::to_string(m.width) + "/" + std::to_string(m.width / 4) + "x" +
                                     std::to_string(m.height) + "/" + std::to_string(m.height / 4) + "+" +
                                     std::to_string(m.x) + "+" + std::to_string(m.y);
        run({"xrandr", "--setmonitor", m.name, geometry, m.ownsOutput ? "screen" : "none"});
        if (m.ownsOutput) run({"xrandr", "--output", "screen", "--primary"});
    }
}

pid_t XvfbSession::start(const std::vector<std::string>& argv) {
    const pid_t pid = spawn(argv, display_, home_);
    children_.push_back(pid);
    return pid;
}

void XvfbSession::stop(pid_t pid) {
    std::erase(children_, pid);
    terminate(pid);
}

std::string XvfbSession::run(const std::vector<std::string>& argv) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    const pid_t pid = spawn(argv, display_, home_, fds[1]);
    close(fds[1]);
    std::string out;
    char buf[65536];
    for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(argv[0] + " failed");
    return out;
}

void XvfbSession::killServer() {
    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
    server_ = -1;
}

bool XvfbSession::waitFor(const std::function<bool()>& check, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (check()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return check();
}

}  // namespace pv::test
