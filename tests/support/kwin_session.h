#pragma once
// A private headless KDE Plasma compositor for one test (tests/support/
// kwin-session.sh): KWin on a virtual output with Xwayland and a session bus of
// its own. Clients started here run in that session; everything stops with
// the session. The test process itself stays outside: it talks to the
// session's bus through the address env("DBUS_SESSION_BUS_ADDRESS").

#include <map>

#include "tests/support/process.h"

namespace pv::test {

struct KWinSessionOptions {
    int width = 1280;
    int height = 800;
    bool permissionChecks = false;  // KWin checks who may take pictures
    bool lockSupport = false;       // the screen locker runs
    std::vector<std::string> kwinEnv;  // VAR=VALUE for KWin
    std::string installEntryFor;       // a binary the session's desktop entry allows pictures
    // Another compositor's launcher in tests/support taking --width/--height
    // and these arguments (gnome-session.sh); empty: KWin's.
    std::string launcher;
    std::vector<std::string> launcherArgs;
};

class KWinSession {
public:
    // Throws std::runtime_error with KWin's last words when it does not come up.
    explicit KWinSession(KWinSessionOptions options = {});
    ~KWinSession();
    KWinSession(const KWinSession&) = delete;
    KWinSession& operator=(const KWinSession&) = delete;

    // A variable of the session's environment ("" when unset).
    std::string env(const std::string& name) const;

    // Starts a program in the session (its own process group), with extra
    // VAR=VALUE settings; stopped with the session at the latest.
    pid_t start(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv = {});
    void stop(pid_t pid);
    // Runs a program in the session to its end: its exit status, output in *out.
    int run(const std::vector<std::string>& argv, std::string* out = nullptr, std::string* err = nullptr,
            const std::vector<std::string>& extraEnv = {});

    // Runs a KWin script (its text) once: load, run, unload (kwin-script.sh).
    void runScript(const std::string& js);
    // KWin's own description of a window (org.kde.KWin getWindowInfo), as
    // gdbus prints it.
    std::string windowInfo(const std::string& uuid);

    // KWin (or the launcher's compositor) goes away, as a crash or a logout would.
    void stopKWin();

    // The test window (tests/support/pv_testwin.cpp) on Wayland or, with x11,
    // as an X client through Xwayland.
    pid_t startTestWindow(const std::string& title, const std::string& fill, const std::string& border,
                          const std::string& size = "300x200", bool x11 = false, const std::string& appId = "");

    static bool waitFor(const std::function<bool()>& check, std::chrono::milliseconds limit = std::chrono::seconds(15)) {
        return test::waitFor(check, limit);
    }

private:
    SpawnOptions environment(const std::vector<std::string>& extra) const;

    pid_t launcher_ = -1;
    int keepAlive_ = -1;  // the launcher's command ends when this closes
    std::map<std::string, std::string> env_;
    std::vector<pid_t> children_;
};

}  // namespace pv::test
