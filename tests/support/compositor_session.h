#pragma once
// A private headless compositor session: KDE Plasma's KWin for one test
// (tests/support/kwin-session.sh) or GNOME Shell with our extension
// (gnome-session.sh), on a virtual output with Xwayland and a session bus of
// its own. Clients started here run in that session; everything stops with
// the session. The test process itself stays outside: it talks to the
// session's bus through the address env("DBUS_SESSION_BUS_ADDRESS").
// Beside it, what the compositor backends' tests check alike of a window
// server: the listed windows by title, their stacking, and whether the
// pictures and the merged image agree.

#include <array>
#include <map>
#include <set>

#include "platform/window_server.h"
#include "tests/support/process.h"

namespace pv::test {

struct CompositorSessionOptions {
    int width = 1280;
    int height = 800;
    bool permissionChecks = false;  // KWin checks who may take pictures
    bool lockSupport = false;       // the screen locker runs
    // Another compositor's launcher in tests/support taking --width/--height
    // and these arguments (gnome-session.sh); empty: KWin's.
    std::string launcher;
    std::vector<std::string> launcherArgs;
};

class CompositorSession {
public:
    // Throws std::runtime_error with KWin's last words when it does not come up.
    explicit CompositorSession(CompositorSessionOptions options = {});
    ~CompositorSession();
    CompositorSession(const CompositorSession&) = delete;
    CompositorSession& operator=(const CompositorSession&) = delete;

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

    // The compositor goes away, as a crash or a logout would.
    void stopCompositor();

    // The test window (tests/support/pv_testwin.cpp) on Wayland or, with x11,
    // as an X client through Xwayland.
    pid_t startTestWindow(const std::string& title, const std::string& fill, const std::string& border,
                          const std::string& size = "300x200", bool x11 = false, const std::string& appId = "");

    static bool waitFor(const std::function<bool()>& check,
                        std::chrono::milliseconds limit = std::chrono::seconds(15)) {
        return test::waitFor(check, limit);
    }

private:
    SpawnOptions environment(const std::vector<std::string>& extra) const;

    pid_t launcher_ = -1;
    int keepAlive_ = -1;  // the launcher's command ends when this closes
    std::map<std::string, std::string> env_;
    std::vector<pid_t> children_;
};

using Pixel = std::array<int, 4>;  // RGBA
Pixel pixelAt(const Image& image, int x, int y);

// The listed windows by title, once all of these titles are listed.
std::map<std::string, WindowListEntry> listedByTitle(WindowServer& server, const std::vector<std::string>& titles);
// The titles of the listed windows front to back; only these, when given.
std::vector<std::string> titlesFrontToBack(WindowServer& server, const std::set<std::string>& only = {});
// A request for a window's picture as a capture makes it.
PictureRequest pictureOf(const WindowListEntry& window, bool framing = false);

// A covered window's picture with the compositor's shadow holds its picture
// at the frame where the framed picture says the frame is; the frontmost
// window's opaque pixels (at least minOpaque of them) are what the merged
// image shows where it stands.
void expectPicturesAgree(const WindowPicture& covered, const WindowPicture& coveredFramed, const WindowPicture& front,
                         const WindowRect& frontBounds, const Image& desktop, int minOpaque);

}  // namespace pv::test
