#include "tests/support/kwin_session.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace pv::test {

namespace {

std::vector<char*> pointers(std::vector<std::string>& items) {
    std::vector<char*> out;
    for (auto& s : items) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

// fork + exec in a process group of its own with exactly this environment;
// stdin from inFd (or nothing), stdout to outFd, stderr to errFd (or nowhere).
pid_t spawn(std::vector<std::string> argv, std::vector<std::string> env, int inFd = -1, int outFd = -1,
            int errFd = -1) {
    auto args = pointers(argv);
    auto vars = pointers(env);
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        setpgid(0, 0);
        const int devnull = open("/dev/null", O_RDWR);
        dup2(inFd >= 0 ? inFd : devnull, STDIN_FILENO);
        dup2(outFd >= 0 ? outFd : devnull, STDOUT_FILENO);
        dup2(errFd >= 0 ? errFd : devnull, STDERR_FILENO);
        execvpe(args[0], args.data(), vars.data());
        _exit(127);
    }
    return pid;
}

void terminate(pid_t pid) {
    if (pid <= 0) return;
    kill(-pid, SIGTERM);
    bool ended = false;
    for (int i = 0; i < 200 && !ended; ++i) {
        ended = waitpid(pid, nullptr, WNOHANG) == pid;
        if (!ended) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!ended) {
        kill(-pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

std::string readAll(int fd) {
    std::string out;
    char buf[65536];
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
    return out;
}

std::string sourceDir() { return PV_SOURCE_DIR; }

}  // namespace

KWinSession::KWinSession(KWinSessionOptions options) {
    std::vector<std::string> argv{"bash", sourceDir() + "/tests/support/kwin-session.sh", "--width",
                                  std::to_string(options.width), "--height", std::to_string(options.height)};
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
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) env.emplace_back(*e);
    launcher_ = spawn(argv, env, in[0], out[1], log);
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
        throw std::runtime_error("the KWin session did not start: " + why);
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

std::vector<std::string> KWinSession::environment(const std::vector<std::string>& extra) const {
    std::map<std::string, std::string> all = env_;
    for (const auto& e : extra) {
        const size_t eq = e.find('=');
        all[e.substr(0, eq)] = eq == std::string::npos ? "" : e.substr(eq + 1);
    }
    std::vector<std::string> out;
    for (const auto& [k, v] : all) out.push_back(k + "=" + v);
    return out;
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
    int o[2], e[2];
    if (pipe2(o, O_CLOEXEC) != 0 || pipe2(e, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    const pid_t pid = spawn(argv, environment(extraEnv), -1, o[1], e[1]);
    close(o[1]);
    close(e[1]);
    // Both pipes are read at once, so that neither can fill up.
    std::string errText;
    std::thread errReader([&] { errText = readAll(e[0]); });
    const std::string outText = readAll(o[0]);
    errReader.join();
    close(o[0]);
    close(e[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (out) *out = outText;
    if (err) *err = errText;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
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
    const pid_t kwin = static_cast<pid_t>(std::atoi(env("PV_KWIN_PID").c_str()));
    if (kwin > 0) kill(kwin, SIGTERM);
}

pid_t KWinSession::startTestWindow(const std::string& title, const std::string& fill, const std::string& border,
                                   const std::string& size, bool x11, const std::string& appId) {
    return start({PV_TESTWIN, "--title", title, "--color", fill, "--border", border, "--size", size, "--app-id",
                  appId.empty() ? "pv-testwin" : appId},
                 {std::string("QT_QPA_PLATFORM=") + (x11 ? "xcb" : "wayland")});
}

bool KWinSession::waitFor(const std::function<bool()>& check, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (check()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return check();
}

}  // namespace pv::test
