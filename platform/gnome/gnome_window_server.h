#pragma once
// The window server of a GNOME Shell Wayland session, through our own Shell
// extension (platform/gnome/extension) over D-Bus: the screens and the windows
// in stacking order from its ListWindows, each window's whole picture at its
// frame (or with its shadow) from one CaptureWindows call per batch, the
// pixels through a memory file we pass along, and the screens as shown from
// its CaptureDesktop. The extension serves only the executables its install
// named; checkAccess() says in one line when it is missing, switched off,
// outdated or refusing us.
//
// Any thread may call (blocking D-Bus calls on a private connection); a batch
// runs on a thread of its own. Needs a QCoreApplication.

#include <chrono>
#include <memory>
#include <string>

#include "platform/window_server.h"

namespace pv {

class GnomeWindowServer : public WindowServer {
public:
    struct Options {
        std::string busAddress;  // empty: $DBUS_SESSION_BUS_ADDRESS
        int32_t ownPid = 0;      // windows of this process are never captured; 0: this process
        std::chrono::milliseconds listTimeout{5000};
    };

    // nullptr with *error when there is no session bus or no GNOME Shell on it.
    static std::unique_ptr<GnomeWindowServer> connect(const Options& options, std::string* error);
    // Whether org.gnome.Shell has an owner on the session bus.
    static bool presentOnSessionBus();
    ~GnomeWindowServer() override;

    std::string hostName() override;
    std::vector<ScreenListEntry> screenList() override;
    std::optional<std::string> productName(uint32_t displayId) override;
    std::vector<WindowListEntry> windowList() override;
    std::optional<std::vector<uint32_t>> displaysOfRect(const WindowRect& bounds, uint32_t maxCount) override;
    std::optional<Image> windowPicture(const std::optional<WindowRect>& bounds, uint32_t windowNumber,
                                       bool framing) override;
    std::optional<Image> desktopPicture() override;

    std::string backendName() const override { return "gnome"; }
    Capabilities capabilities() const override;
    Failure checkAccess() override;
    std::unique_ptr<PictureBatch> requestPictures(std::vector<PictureRequest> requests,
                                                  std::chrono::milliseconds deadline,
                                                  PictureCallback onEach = {}) override;

    struct Impl;

private:
    explicit GnomeWindowServer(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d_;
};

}  // namespace pv
