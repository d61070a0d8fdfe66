#pragma once
// Programs a test starts and stops, and condition waits: one place for every
// private server, session and client the tests run. Header-only, so that a
// benchmark can take a session's source as it is.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace pv::test {

// Polls check until it holds; false when it did not within the limit.
inline bool waitFor(const std::function<bool()>& check, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (check()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return check();
}

struct SpawnOptions {
    std::vector<std::string> env;     // VAR=VALUE to set, VAR alone to unset
    bool exactEnv = false;            // start from an empty environment
    int in = -1, out = -1, err = -1;  // -1: /dev/null
    int keep = -1;                    // a descriptor the program inherits
};

// fork + exec in a process group of its own.
inline pid_t spawn(const std::vector<std::string>& argv, const SpawnOptions& o = {}) {
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        setpgid(0, 0);
        if (o.exactEnv) clearenv();
        for (const auto& e : o.env) {
            const size_t eq = e.find('=');
            if (eq == std::string::npos)
                unsetenv(e.c_str());
            else
                setenv(e.substr(0, eq).c_str(), e.c_str() + eq + 1, 1);
        }
        const int devnull = open("/dev/null", O_RDWR);
        dup2(o.in >= 0 ? o.in : devnull, STDIN_FILENO);
        dup2(o.out >= 0 ? o.out : devnull, STDOUT_FILENO);
        dup2(o.err >= 0 ? o.err : devnull, STDERR_FILENO);
        if (o.keep >= 0) fcntl(o.keep, F_SETFD, 0);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

// Ends a program and whatever it started in its process group.
inline void terminate(pid_t pid) {
    if (pid <= 0) return;
    kill(-pid, SIGTERM);
    const bool ended = waitFor([&] { return waitpid(pid, nullptr, WNOHANG) == pid; }, std::chrono::seconds(2));
    kill(-pid, SIGKILL);
    if (!ended) waitpid(pid, nullptr, 0);
}

inline std::string readAll(int fd) {
    std::string out;
    char buf[65536];
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
    return out;
}

// Runs a program to its end: its exit status (128 + signal when killed),
// its standard output and error in *out and *err.
inline int runProgram(const std::vector<std::string>& argv, SpawnOptions o = {}, std::string* out = nullptr,
                      std::string* err = nullptr) {
    int po[2], pe[2];
    if (pipe2(po, O_CLOEXEC) != 0 || pipe2(pe, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    o.out = po[1];
    o.err = err ? pe[1] : -1;
    const pid_t pid = spawn(argv, o);
    close(po[1]);
    close(pe[1]);
    std::string errText;
    std::thread errReader([&] { errText = readAll(pe[0]); });  // both at once: neither pipe fills up
    const std::string outText = readAll(po[0]);
    errReader.join();
    close(po[0]);
    close(pe[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (out) *out = outText;
    if (err) *err = errText;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace pv::test
