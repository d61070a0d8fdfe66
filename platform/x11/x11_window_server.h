#pragma once
// The window server of an X display: RandR monitors as screens, the top-level
// windows as the window list, and their pictures through Composite.
//
// Every call may come from any thread; calls are serialised on one
// connection. A display that goes away makes every call throw
// PlatformError("X display connection lost").

#include <memory>
#include <mutex>
#include <string>

#include "platform/window_server.h"

namespace pv::x11 {
class X11Connection;
class DrawableReader;
class WindowPixels;
struct X11Monitor;
struct TopLevel;
struct RootBox;
}  // namespace pv::x11

namespace pv {

class DesktopEntryCache;

class X11WindowServer : public WindowServer {
public:
    // displayName empty: $DISPLAY. nullptr with *error ("cannot open X display
    // NAME: REASON") when there is no display to talk to.
    static std::unique_ptr<X11WindowServer> connect(const std::string& displayName, std::string* error);
    ~X11WindowServer() override;

    std::string hostName() override;
    std::vector<ScreenListEntry> screenList() override;
    std::optional<std::string> productName(uint32_t displayId) override;
    std::vector<WindowListEntry> windowList() override;
    std::optional<std::vector<uint32_t>> displaysOfRect(const WindowRect& bounds, uint32_t maxCount) override;
    std::optional<Image> windowPicture(const std::optional<WindowRect>& bounds, uint32_t windowNumber,
                                       bool framing) override;
    std::optional<Image> desktopPicture() override;
    std::string backendName() const override { return "x11"; }

    // Whether the display is Xwayland, the X server of a Wayland session:
    // its pictures then show only the X clients, not the session.
    bool isXwayland();

    // Reading pixels through shared memory (on by default where the server
    // offers it); off forces plain GetImage requests.
    void setSharedMemory(bool on);
    bool usesSharedMemory() const;

private:
    explicit X11WindowServer(std::unique_ptr<x11::X11Connection> conn);
    std::vector<x11::X11Monitor> monitors();
    std::optional<Image> visiblePixels(const x11::TopLevel& top);
    std::optional<Image> cutToRect(const Image& picture, const x11::RootBox& at, const WindowRect& bounds);
    void leaveOutUnshared(Image& desktop);

    mutable std::mutex mutex_;
    std::unique_ptr<x11::X11Connection> conn_;
    std::unique_ptr<x11::DrawableReader> reader_;
    std::unique_ptr<x11::WindowPixels> pixels_;
    bool hasXRes_ = false;
    std::unique_ptr<DesktopEntryCache> applications_;  // names and icons of programs, from $XDG_DATA_DIRS
};

}  // namespace pv
