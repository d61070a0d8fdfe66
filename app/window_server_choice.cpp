#include "app/window_server_choice.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "app/guarded_application.h"
#include "platform/fixture_desktop.h"
#include "platform/gnome/gnome_window_server.h"
#include "platform/kwin/kwin_window_server.h"
#include "platform/x11/x11_window_server.h"

namespace pv {

namespace {

// A Wayland session whose compositor we cannot capture: no windows, every
// capture refused with the reason. Screens come from Xwayland when there is
// one, so that the application still starts and can say so.
class UnsupportedSession : public WindowServer {
public:
    UnsupportedSession(Failure why, std::unique_ptr<X11WindowServer> xwayland)
        : why_(std::move(why)), xwayland_(std::move(xwayland)) {}

    std::string hostName() override { return xwayland_ ? xwayland_->hostName() : "localhost"; }
    std::vector<ScreenListEntry> screenList() override {
        return xwayland_ ? xwayland_->screenList() : std::vector<ScreenListEntry>{};
    }
    std::optional<std::string> productName(uint32_t id) override {
        return xwayland_ ? xwayland_->productName(id) : std::nullopt;
    }
    std::vector<WindowListEntry> windowList() override { return {}; }
    std::optional<std::vector<uint32_t>> displaysOfRect(const WindowRect& bounds, uint32_t maxCount) override {
        return displaysMeetingRect(screenList(), bounds, maxCount);
    }
    std::optional<Image> windowPicture(const std::optional<WindowRect>&, uint32_t, bool) override {
        return std::nullopt;
    }
    std::optional<Image> desktopPicture() override { return std::nullopt; }
    std::string backendName() const override { return "none"; }
    Capabilities capabilities() const override { return 0; }
    Failure checkAccess() override { return why_; }

private:
    Failure why_;
    std::unique_ptr<X11WindowServer> xwayland_;
};

std::optional<std::string> environment(const char* name) {
    const char* v = std::getenv(name);
    return v ? std::optional<std::string>(v) : std::nullopt;
}

// A Unix socket that accepts a connection.
bool socketAccepts(const std::string& path) {
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof address.sun_path) return false;
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    const bool ok = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return ok;
}

std::unique_ptr<WindowServer> openFixture(const std::string& path, std::string* error) {
    try {
        return FixtureDesktop::load(path);
    } catch (const FixtureError& e) {
        *error = e.what();
        return nullptr;
    }
}

std::unique_ptr<WindowServer> openGnome(std::string* error) {
    auto server = GnomeWindowServer::connect({}, error);
    if (!server) *error = "GNOME: " + *error;
    return server;
}

// The compositor backend of a Wayland session: KWin's or GNOME Shell's,
// whichever is on the session bus; nullptr when neither is.
std::unique_ptr<WindowServer> openCompositor(std::string* error);

std::unique_ptr<WindowServer> openKWin(std::string* error) {
    auto server = KWinWindowServer::connect({}, error);
    if (!server) *error = "KDE Plasma: " + *error;
    return server;
}

// The prefix the compositor-gone line carries; set with the application.
std::string& linePrefix() {
    static std::string prefix = "plenavue";
    return prefix;
}
QtMessageHandler previousHandler = nullptr;

// Qt ends a program whose Wayland connection broke with a line of its own;
// ours says what it means for the capture.
void compositorGoneHandler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (message.contains("The Wayland connection broke")) {
        std::fprintf(stderr, "%s: the Wayland compositor went away: nothing was captured\n", linePrefix().c_str());
        return;
    }
    if (previousHandler) previousHandler(type, context, message);
}

}  // namespace

SessionFacts sessionFrom(const std::function<std::optional<std::string>(const char*)>& getenv) {
    SessionFacts facts;
    facts.forced = getenv("PLENAVUE_BACKEND").value_or("");
    facts.desktop = getenv("XDG_CURRENT_DESKTOP").value_or("");
    if (facts.desktop.empty()) facts.desktop = getenv("XDG_SESSION_DESKTOP").value_or("");
    const std::string type = getenv("XDG_SESSION_TYPE").value_or("");
    const std::string display = getenv("WAYLAND_DISPLAY").value_or("");
    if (type == "wayland") {
        facts.wayland = true;
        facts.evidence = "XDG_SESSION_TYPE=wayland";
    } else if (!display.empty() && type != "x11") {
        facts.wayland = true;
        facts.evidence = "WAYLAND_DISPLAY=" + display;
    }
    if (facts.wayland || !display.empty()) {
        const std::string name = display.empty() ? "wayland-0" : display;
        facts.waylandSocket = name.front() == '/' ? name : getenv("XDG_RUNTIME_DIR").value_or("") + "/" + name;
    }
    return facts;
}

SessionFacts currentSession() { return sessionFrom(environment); }

Failure unsupportedSession(const SessionFacts& session) {
    if (session.desktop.find("KDE") != std::string::npos)
        return {FailureKind::Unsupported,
                "this is a KDE Plasma Wayland session (" + session.evidence + ") but KWin is not on its session bus",
                "run Plenavue inside the Plasma session, on its session bus"};
    if (session.desktop.find("GNOME") != std::string::npos)
        return {FailureKind::Unsupported,
                "this is a GNOME Wayland session (" + session.evidence + ") but GNOME Shell is not on its session bus",
                "run Plenavue inside the GNOME session, on its session bus"};
    const std::string desktop = session.desktop.empty() ? "an unknown desktop" : session.desktop;
    return {FailureKind::Unsupported,
            "this is a Wayland session (" + desktop + ", " + session.evidence +
                ") whose compositor Plenavue cannot capture: through Xwayland only the X clients could be seen",
            "log in to an X11 (Xorg) session, or to KDE Plasma or GNOME, to capture its windows"};
}

namespace {

std::unique_ptr<WindowServer> openCompositor(std::string* error) {
    if (!QCoreApplication::instance()) return nullptr;
    if (KWinWindowServer::presentOnSessionBus()) return openKWin(error);
    if (GnomeWindowServer::presentOnSessionBus()) return openGnome(error);
    return nullptr;
}

}  // namespace

bool opensAfterApplication(const std::string& desktop) {
    if (!desktop.empty()) return false;
    const SessionFacts session = currentSession();
    if (session.forced == "kwin" || session.forced == "gnome") return true;
    if (!session.forced.empty()) return false;
    return session.wayland;
}

namespace {

template <class Base>
CommandLineApplication guarded(int& argc, char** argv, const std::string& prefix) {
    auto app = std::make_unique<GuardedApplication<Base>>(argc, argv, prefix);
    const LoopFailure* loop = app.get();
    return {std::move(app), loop};
}

}  // namespace

CommandLineApplication makeCommandLineApplication(int& argc, char** argv, const std::string& desktop,
                                                  const std::string& prefix) {
    const SessionFacts session = currentSession();
    // GNOME's backend asks our extension for everything, screens included: no
    // Wayland connection of our own there.
    const bool gnome =
        session.forced == "gnome" || (session.forced.empty() && session.desktop.find("GNOME") != std::string::npos);
    const bool compositorBackend =
        desktop.empty() && !gnome && (session.forced == "kwin" || (session.forced.empty() && session.wayland));
    if (!compositorBackend || !socketAccepts(session.waylandSocket))
        return guarded<QCoreApplication>(argc, argv, prefix);
    linePrefix() = prefix;
    previousHandler = qInstallMessageHandler(compositorGoneHandler);
    // KWin's backend reads the screens from Qt's Wayland platform.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "wayland");
    return guarded<QGuiApplication>(argc, argv, prefix);
}

std::unique_ptr<WindowServer> openWindowServer(const std::string& desktop, std::string* error) {
    if (!desktop.empty()) return openFixture(desktop, error);
    const SessionFacts session = currentSession();
    if (session.forced == "fixture") {
        const auto file = environment("PLENAVUE_DESKTOP").value_or("");
        if (file.empty()) {
            *error = "PLENAVUE_BACKEND=fixture needs --desktop FILE or PLENAVUE_DESKTOP=FILE";
            return nullptr;
        }
        return openFixture(file, error);
    }
    if (session.forced == "kwin") return openKWin(error);
    if (session.forced == "gnome") return openGnome(error);
    if (session.forced == "x11") return X11WindowServer::connect("", error);
    if (!session.forced.empty()) {
        *error = "PLENAVUE_BACKEND=" + session.forced + " is not a backend (use x11, kwin, gnome or fixture)";
        return nullptr;
    }

    if (session.wayland) {
        if (auto server = openCompositor(error)) return server;
        std::string ignored;
        return std::make_unique<UnsupportedSession>(unsupportedSession(session),
                                                    X11WindowServer::connect("", &ignored));
    }
    auto x11 = X11WindowServer::connect("", error);
    if (!x11 || !x11->isXwayland()) return x11;
    // An X display of a Wayland session that the environment did not name.
    SessionFacts xwayland = session;
    xwayland.evidence = "the X display is Xwayland";
    if (auto server = openCompositor(error)) return server;
    return std::make_unique<UnsupportedSession>(unsupportedSession(xwayland), std::move(x11));
}

}  // namespace pv
