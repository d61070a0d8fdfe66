#pragma once
// The window server of a KDE Plasma Wayland session, through KWin over D-Bus:
// screens from Qt (each with its own scale), the windows from a KWin script
// that reports back to us, their pictures from org.kde.KWin.ScreenShot2 in one
// batch, and the screens as shown from its CaptureWorkspace.
//
// Any thread may call; D-Bus traffic runs on a thread of the server's own, so
// a caller waits without running an event loop. Screens are read from Qt on
// the thread of the QGuiApplication (when it runs on Wayland), else from KWin.
// Needs a QCoreApplication; batches must not outlive the server.

#include <chrono>
#include <memory>
#include <string>

#include "platform/window_server.h"

namespace pv {

class KWinWindowServer : public WindowServer {
public:
    struct Options {
        std::string busAddress;  // empty: $DBUS_SESSION_BUS_ADDRESS
        int32_t ownPid = 0;      // windows of this process are never captured; 0: this process
        std::chrono::milliseconds listTimeout{3000};
    };

    // nullptr with *error ("KWin is not on the session bus", ...) when there
    // is no KWin to talk to.
    static std::unique_ptr<KWinWindowServer> connect(const Options& options, std::string* error);
    // Whether org.kde.KWin has an owner on the session bus.
    static bool presentOnSessionBus();
    ~KWinWindowServer() override;

    std::string hostName() override;
    std::vector<ScreenListEntry> screenList() override;
    std::optional<std::string> productName(uint32_t displayId) override;
    std::vector<WindowListEntry> windowList() override;
    std::optional<std::vector<uint32_t>> displaysOfRect(const WindowRect& bounds, uint32_t maxCount) override;
    std::optional<Image> windowPicture(const std::optional<WindowRect>& bounds, uint32_t windowNumber,
                                       bool framing) override;
    std::optional<Image> desktopPicture() override;

    std::string backendName() const override { return "kwin"; }
    Capabilities capabilities() const override;
    // KWin there, the screen not locked, and ScreenShot2 serving us (a
    // picture of the null window is "invalid" when we may, refused when not).
    Failure checkAccess() override;
    // Minimised windows and a locked screen get no answer from KWin: the
    // first are not listed, the second is asked before the batch goes out.
    std::unique_ptr<PictureBatch> requestPictures(std::vector<PictureRequest> requests,
                                                  std::chrono::milliseconds deadline,
                                                  PictureCallback onEach = {}) override;

    // The scripting KWin offered the last listing: 5 (5.27) or 6 (Plasma 6); 0 before.
    int scriptApi() const;

    struct Impl;

private:
    explicit KWinWindowServer(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> d_;
};

}  // namespace pv
