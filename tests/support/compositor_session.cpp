#include "tests/support/compositor_session.h"

#include <gtest/gtest.h>

namespace pv::test {

namespace {

std::string sourceDir() { return PV_SOURCE_DIR; }

}  // namespace

CompositorSession::CompositorSession(CompositorSessionOptions options) {
    const std::string launcher = options.launcher.empty() ? "kwin-session.sh" : options.launcher;
    std::vector<std::string> argv{"bash",     sourceDir() + "/tests/support/" + launcher,
                                  "--width",  std::to_string(options.width),
                                  "--height", std::to_string(options.height)};
    argv.insert(argv.end(), options.launcherArgs.begin(), options.launcherArgs.end());
    if (options.permissionChecks) argv.push_back("--permission-checks");
    if (options.lockSupport) argv.push_back("--lock-support");
    // The command prints the session's environment, then waits for our end of
    // its standard input to close.
    argv.insert(argv.end(), {"--", "sh", "-c", "env -0; printf '\\0PV-SESSION-UP\\0'; exec cat >/dev/null"});

    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    // The session's own messages go to a file, read only when it fails.
    char logName[] = "/tmp/pv-kwin-session-XXXXXX";
    const int log = mkostemp(logName, O_CLOEXEC);
    if (log < 0) throw std::runtime_error("no log file");
    unlink(logName);
    SpawnOptions o;
    o.in = in[0];
    o.out = out[1];
    o.err = log;
    launcher_ = spawn(argv, o);
    close(in[0]);
    close(out[1]);
    keepAlive_ = in[1];

    std::string text;
    char buf[4096];
    const std::string marker = std::string("\0PV-SESSION-UP\0", 15);
    while (text.find(marker) == std::string::npos) {
        const ssize_t n = read(out[0], buf, sizeof buf);
        if (n <= 0) break;
        text.append(buf, static_cast<size_t>(n));
    }
    close(out[0]);
    if (text.find(marker) == std::string::npos) {
        close(keepAlive_);
        waitpid(launcher_, nullptr, 0);
        lseek(log, 0, SEEK_SET);
        const std::string why = readAll(log);
        close(log);
        throw std::runtime_error("the " + launcher + " session did not start: " + why);
    }
    close(log);
    text.resize(text.find(marker));
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find('\0', start);
        const std::string item = text.substr(start, end - start);
        if (const size_t eq = item.find('='); eq != std::string::npos) env_[item.substr(0, eq)] = item.substr(eq + 1);
        if (end == std::string::npos) break;
        start = end + 1;
    }
}

CompositorSession::~CompositorSession() {
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) terminate(*it);
    close(keepAlive_);
    int status = 0;
    waitpid(launcher_, &status, 0);
}

std::string CompositorSession::env(const std::string& name) const {
    auto it = env_.find(name);
    return it == env_.end() ? std::string() : it->second;
}

SpawnOptions CompositorSession::environment(const std::vector<std::string>& extra) const {
    SpawnOptions o;
    o.exactEnv = true;
    for (const auto& [k, v] : env_) o.env.push_back(k + "=" + v);
    o.env.insert(o.env.end(), extra.begin(), extra.end());
    return o;
}

pid_t CompositorSession::start(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv) {
    const pid_t pid = spawn(argv, environment(extraEnv));
    children_.push_back(pid);
    return pid;
}

void CompositorSession::stop(pid_t pid) {
    terminate(pid);
    std::erase(children_, pid);
}

int CompositorSession::run(const std::vector<std::string>& argv, std::string* out, std::string* err,
                           const std::vector<std::string>& extraEnv) {
    return runProgram(argv, environment(extraEnv), out, err);
}

void CompositorSession::runScript(const std::string& js) {
    if (run({sourceDir() + "/tests/support/kwin-script.sh", js}) != 0)
        throw std::runtime_error("KWin did not run the script " + js);
}

std::string CompositorSession::windowInfo(const std::string& uuid) {
    std::string out;
    run({"gdbus", "call", "--session", "--dest", "org.kde.KWin", "--object-path", "/KWin", "--method",
         "org.kde.KWin.getWindowInfo", uuid},
        &out);
    return out;
}

void CompositorSession::stopCompositor() {
    const std::string named = env("PV_KWIN_PID").empty() ? env("PV_COMPOSITOR_PID") : env("PV_KWIN_PID");
    const pid_t kwin = static_cast<pid_t>(std::atoi(named.c_str()));
    if (kwin > 0) kill(kwin, SIGTERM);
}

pid_t CompositorSession::startTestWindow(const std::string& title, const std::string& fill, const std::string& border,
                                         const std::string& size, bool x11, const std::string& appId) {
    return start({PV_TESTWIN, "--title", title, "--color", fill, "--border", border, "--size", size, "--app-id",
                  appId.empty() ? "pv-testwin" : appId},
                 {std::string("QT_QPA_PLATFORM=") + (x11 ? "xcb" : "wayland")});
}

Pixel pixelAt(const Image& image, int x, int y) {
    const uint8_t* p = image.row(y) + 4 * x;
    return {p[0], p[1], p[2], p[3]};
}

std::map<std::string, WindowListEntry> listedByTitle(WindowServer& server, const std::vector<std::string>& titles) {
    std::map<std::string, WindowListEntry> found;
    const bool all = CompositorSession::waitFor([&] {
        found.clear();
        for (const auto& e : server.windowList()) found[e.title.value_or("")] = e;
        return std::all_of(titles.begin(), titles.end(), [&](const auto& t) { return found.count(t) > 0; });
    });
    EXPECT_TRUE(all) << "not all windows came up";
    return found;
}

std::vector<std::string> titlesFrontToBack(WindowServer& server, const std::set<std::string>& only) {
    std::vector<std::string> out;
    for (const auto& e : server.windowList())
        if (only.empty() || only.count(e.title.value_or(""))) out.push_back(e.title.value_or(""));
    return out;
}

PictureRequest pictureOf(const WindowListEntry& window, bool framing) {
    PictureRequest r;
    r.window = window.number;
    r.framing = framing;
    r.listedBounds = window.bounds;
    return r;
}

void expectPicturesAgree(const WindowPicture& covered, const WindowPicture& coveredFramed, const WindowPicture& front,
                         const WindowRect& frontBounds, const Image& desktop, int minOpaque) {
    const Image& plain = covered.image;
    EXPECT_EQ(coveredFramed.frame.size(), (Size{double(plain.width), double(plain.height)}));
    EXPECT_EQ(coveredFramed.placement.x, covered.placement.x - coveredFramed.frame.x);
    EXPECT_EQ(coveredFramed.placement.y, covered.placement.y - coveredFramed.frame.y);
    for (int y = 0; y < plain.height; y += 5)
        for (int x = 0; x < plain.width; x += 5)
            ASSERT_EQ(pixelAt(coveredFramed.image, x + int(coveredFramed.frame.x), y + int(coveredFramed.frame.y)),
                      pixelAt(plain, x, y))
                << x << "," << y;
    int opaque = 0, same = 0;
    for (int y = 0; y < front.image.height; ++y)
        for (int x = 0; x < front.image.width; ++x) {
            if (pixelAt(front.image, x, y)[3] != 255) continue;  // rounded corners blend with what lies behind
            ++opaque;
            same += pixelAt(front.image, x, y) == pixelAt(desktop, int(frontBounds.x) + x, int(frontBounds.y) + y);
        }
    EXPECT_GE(opaque, minOpaque);
    EXPECT_EQ(same, opaque);
}

}  // namespace pv::test
