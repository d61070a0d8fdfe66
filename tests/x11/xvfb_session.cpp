#include "tests/x11/xvfb_session.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace pv::test {
namespace {

// fork + exec with DISPLAY set; stdout to outFd when given, stderr silenced.
pid_t spawn(const std::vector<std::string>& argv, const std::string& display, int outFd = -1,
            int keepFd = -1) {
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        setpgid(0, 0);
        if (!display.empty()) setenv("DISPLAY", display.c_str(), 1);
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

void terminate(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    for (int i = 0; i < 100; ++i) {
        if (waitpid(pid, nullptr, WNOHANG) == pid) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
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

bool windowManagerReady(xcb_connection_t* c, xcb_window_t root) {
    const char* name = "_NET_SUPPORTING_WM_CHECK";
    auto* atom = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(strlen(name)), name), nullptr);
    if (!atom) return false;
    auto* prop = xcb_get_property_reply(c, xcb_get_property(c, 0, root, atom->atom, XCB_ATOM_WINDOW, 0, 1), nullptr);
    const bool ready = prop && xcb_get_property_value_length(prop) == 4;
    free(prop);
    free(atom);
    return ready;
}

}  // namespace

XvfbSession::XvfbSession(XvfbOptions options) {
    unsetenv("DISPLAY");  // nothing here may reach the developer's display
    startServer(options);
    if (!options.monitors.empty()) setMonitors(options.monitors);
    if (options.windowManager) startWindowManager();
}

XvfbSession::~XvfbSession() {
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) terminate(*it);
    if (conn_) xcb_disconnect(conn_);
    terminate(server_);
}

xcb_window_t XvfbSession::root() const { return xcb_setup_roots_iterator(xcb_get_setup(conn_)).data->root; }

void XvfbSession::startServer(const XvfbOptions& o) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    const std::string screen = std::to_string(o.width) + "x" + std::to_string(o.height) + "x24";
    server_ = spawn({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", screen, "-nolisten", "tcp",
                     "-noreset", "+extension", "Composite", "+extension", "RANDR"},
                    "", -1, fds[1]);
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

void XvfbSession::startWindowManager() {
    start({"openbox", "--sm-disable"});
    if (!waitFor([&] { return windowManagerReady(conn_, root()); }))
        throw std::runtime_error("openbox did not come up");
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
    const pid_t pid = spawn(argv, display_);
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
    const pid_t pid = spawn(argv, display_, fds[1]);
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
