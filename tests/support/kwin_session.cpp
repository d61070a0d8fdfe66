#include "tests/support/kwin_session.h"


namespace pv::test {

namespace {

std::string sourceDir() { return PV_SOURCE_DIR; }

}  // namespace

KWinSession::KWinSession(KWinSessionOptions options) {
    const std::string launcher = options.launcher.empty() ? "kwin-session.sh" : options.launcher;
    std::vector<std::string> argv{"bash", sourceDir() + "/tests/support/" + launcher, "--width",
                                  std::to_string(options.width), "--height", std::to_string(options.height)};
    argv.insert(argv.end(), options.launcherArgs.begin(), options.launcherArgs.end());
    if (options.permissionChecks) argv.push_back("--permission-checks");
    if (options.lockSupport) argv.push_back("--lock-support");
    for (const auto& e : options.kwinEnv) argv.insert(argv.end(), {"--kwin-env", e});
    if (!options.installEntryFor.empty()) argv.insert(argv.end(), {"--install-entry", options.installEntryFor});
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

KWinSession::~KWinSession() {
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) terminate(*it);
    close(keepAlive_);
    int status = 0;
    waitpid(launcher_, &status, 0);
}

std::string KWinSession::env(const std::string& name) const {
    auto it = env_.find(name);
    return it == env_.end() ? std::string() : it->second;
}

SpawnOptions KWinSession::environment(const std::vector<std::string>& extra) const {
    SpawnOptions o;
    o.exactEnv = true;
    for (const auto& [k, v] : env_) o.env.push_back(k + "=" + v);
    o.env.insert(o.env.end(), extra.begin(), extra.end());
    return o;
}

pid_t KWinSession::start(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv) {
    const pid_t pid = spawn(argv, environment(extraEnv));
    children_.push_back(pid);
    return pid;
}

void KWinSession::stop(pid_t pid) {
    terminate(pid);
    std::erase(children_, pid);
}

int KWinSession::run(const std::vector<std::string>& argv, std::string* out, std::string* err,
                     const std::vector<std::string>& extraEnv) {
    return runProgram(argv, environment(extraEnv), out, err);
}

void KWinSession::runScript(const std::string& js) {
    if (run({sourceDir() + "/tests/support/kwin-script.sh", js}) != 0)
        throw std::runtime_error("KWin did not run the script " + js);
}

std::string KWinSession::windowInfo(const std::string& uuid) {
    std::string out;
    run({"gdbus", "call", "--session", "--dest", "org.kde.KWin", "--object-path", "/KWin", "--method",
         "org.kde.KWin.getWindowInfo", uuid},
        &out);
    return out;
}

void KWinSession::stopKWin() {
    const std::string named = env("PV_KWIN_PID").empty() ? env("PV_COMPOSITOR_PID") : env("PV_KWIN_PID");
    const pid_t kwin = static_cast<pid_t>(std::atoi(named.c_str()));
    if (kwin > 0) kill(kwin, SIGTERM);
}

pid_t KWinSession::startTestWindow(const std::string& title, const std::string& fill, const std::string& border,
                                   const std::string& size, bool x11, const std::string& appId) {
    return start({PV_TESTWIN, "--title", title, "--color", fill, "--border", border, "--size", size, "--app-id",
                  appId.empty() ? "pv-testwin" : appId},
                 {std::string("QT_QPA_PLATFORM=") + (x11 ? "xcb" : "wayland")});
}

}  // namespace pv::test
