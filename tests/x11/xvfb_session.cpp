#include "tests/x11/xvfb_session.h"

#include <poll.h>

#include <filesystem>
#include <fstream>

namespace pv::test {

xcb_atom_t internAtom(xcb_connection_t* c, const std::string& name) {
    auto* r =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(name.size()), name.c_str()), nullptr);
    const xcb_atom_t atom = r ? r->atom : xcb_atom_t{XCB_ATOM_NONE};
    free(r);
    return atom;
}

namespace {

// The manager has named its check window, and that window exists.
bool windowManagerReady(xcb_connection_t* c, xcb_window_t root) {
    auto* prop = xcb_get_property_reply(
        c, xcb_get_property(c, 0, root, internAtom(c, "_NET_SUPPORTING_WM_CHECK"), XCB_ATOM_WINDOW, 0, 1), nullptr);
    xcb_window_t window = XCB_NONE;
    if (prop && xcb_get_property_value_length(prop) == 4)
        window = *static_cast<xcb_window_t*>(xcb_get_property_value(prop));
    free(prop);
    auto* geometry = window == XCB_NONE ? nullptr : xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr);
    free(geometry);
    return geometry != nullptr;
}

// i3 with its bar at the top, no status program that changes, no wizard.
const char* const kI3Config =
    "# i3 config file (v4)\nfont pango:DejaVu Sans Mono 8\nfocus_follows_mouse no\n"
    "bar {\n  position top\n  status_command echo plenavue\n}\n";

// fluxbox without a wallpaper program (its default style runs one) and
// without the toolbar's clock, so that the screen holds still.
const char* const kFluxboxInit =
    "session.screen0.toolbar.tools: workspacename, iconbar\nsession.screen0.toolbar.visible: true\n"
    "session.screen0.toolbar.placement: BottomCenter\nsession.screen0.rootCommand: true\n"
    "session.screen0.workspaces: 2\nsession.styleOverlay: ~/.fluxbox/overlay\n";

}  // namespace

XvfbSession::XvfbSession(XvfbOptions o) {
    unsetenv("DISPLAY");  // nothing here may reach the developer's display
    char home[] = "/tmp/pv-xvfb-home-XXXXXX";
    if (!mkdtemp(home)) throw std::runtime_error("no private home");
    home_ = home;
    try {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
        SpawnOptions xvfb;
        xvfb.keep = fds[1];
        server_ = spawn({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0",
                         std::to_string(o.width) + "x" + std::to_string(o.height) + "x24", "-nolisten", "tcp",
                         "-noreset", "+extension", "Composite", "+extension", "RANDR"},
                        xvfb);
        close(fds[1]);
        pollfd p{fds[0], POLLIN, 0};
        std::string number;
        for (char ch = 0; ch != '\n' && poll(&p, 1, 10000) > 0 && read(fds[0], &ch, 1) == 1;) number += ch;
        close(fds[0]);
        if (number.empty() || number.back() != '\n') throw std::runtime_error("Xvfb did not start");
        display_ = ":" + number.substr(0, number.size() - 1);
        conn_ = xcb_connect(display_.c_str(), nullptr);
        if (xcb_connection_has_error(conn_)) throw std::runtime_error("cannot reach the new Xvfb " + display_);
        if (!o.monitors.empty()) setMonitors(o.monitors);
        if (!o.resources.empty()) {
            xcb_change_property(conn_, XCB_PROP_MODE_REPLACE, root(), internAtom(conn_, "RESOURCE_MANAGER"),
                                XCB_ATOM_STRING, 8, static_cast<uint32_t>(o.resources.size()), o.resources.data());
            free(xcb_get_input_focus_reply(conn_, xcb_get_input_focus(conn_), nullptr));
        }
        startWindowManager(o.manager);
        const std::vector<std::vector<std::string>> compositors{
            {},
            {"picom", "--backend", "xrender"},
            {"picom", "--backend", "xrender", "--unredir-if-possible"},
            {"xcompmgr"}};
        if (o.compositor != Compositor::None) {
            start(compositors[static_cast<size_t>(o.compositor)]);
            waitUntil([&] { return compositing(); }, "the compositor did not start compositing");
        }
    } catch (...) {
        end();
        throw;
    }
}

XvfbSession::~XvfbSession() { end(); }

void XvfbSession::end() {
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) terminate(*it);
    if (conn_) xcb_disconnect(conn_);
    terminate(server_);
    std::error_code ignored;
    std::filesystem::remove_all(home_, ignored);
}

xcb_window_t XvfbSession::root() const { return xcb_setup_roots_iterator(xcb_get_setup(conn_)).data->root; }

SpawnOptions XvfbSession::options() const {
    // Never the developer's session bus; GTK looks for no accessibility bus.
    return {{"DISPLAY=" + display_, "HOME=" + home_, "XDG_CONFIG_HOME=" + home_ + "/.config",
             "XDG_CACHE_HOME=" + home_ + "/.cache", "XDG_DATA_HOME=" + home_ + "/.local/share",
             "XDG_RUNTIME_DIR=" + home_, "DBUS_SESSION_BUS_ADDRESS", "NO_AT_BRIDGE=1"}};
}

void XvfbSession::writeHomeFile(const std::string& name, const std::string& text) {
    const std::filesystem::path path = std::filesystem::path(home_) / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
}

void XvfbSession::waitUntil(const std::function<bool()>& ready, const std::string& what) {
    if (!waitFor(ready, std::chrono::seconds(30))) throw std::runtime_error(what);
}

void XvfbSession::startWindowManager(WindowManager manager) {
    if (manager == WindowManager::None) return;
    writeHomeFile(".config/i3/config", kI3Config);
    writeHomeFile(".fluxbox/overlay", "background: none\n");
    writeHomeFile(".fluxbox/init", kFluxboxInit);
    // The managers that composite read their settings over a session bus.
    const std::vector<std::vector<std::string>> managers{
        {},
        {"openbox", "--sm-disable"},
        {"dbus-run-session", "--", "xfwm4", "--compositor=on"},
        {"dbus-run-session", "--", "metacity", "--sm-disable", "--composite"},
        {"dbus-run-session", "--", "marco", "--sm-disable", "--composite"},
        {"dbus-run-session", "--", "kwin_x11"},
        {"i3", "-c", home_ + "/.config/i3/config"},
        {"fluxbox", "-rc", home_ + "/.fluxbox/init"}};
    const std::vector<std::string>& argv = managers[static_cast<size_t>(manager)];
    start(argv);
    waitUntil([&] { return windowManagerReady(conn_, root()); }, argv[0] + " did not come up");
    // Clients decide at start whether the screen is composited (GTK draws its
    // shadow margins only then), so the compositor must be up first.
    if (argv[0] == "dbus-run-session")
        waitUntil([&] { return compositing(); }, "the window manager did not start compositing");
}

bool XvfbSession::compositing() const {
    auto* owner = xcb_get_selection_owner_reply(
        conn_, xcb_get_selection_owner(conn_, internAtom(conn_, "_NET_WM_CM_S0")), nullptr);
    const bool owned = owner && owner->owner != XCB_NONE;
    free(owner);
    return owned;
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
    const pid_t pid = spawn(argv, options());
    children_.push_back(pid);
    return pid;
}

std::string XvfbSession::run(const std::vector<std::string>& argv) {
    std::string out;
    if (runProgram(argv, options(), &out) != 0) throw std::runtime_error(argv[0] + " failed");
    return out;
}

void XvfbSession::killServer() {
    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
    server_ = -1;
}

}  // namespace pv::test
