#pragma once
// What the inventory and capture code need of the platform: the screens, the
// windows and their pictures. Implemented over X11 (platform/x11), over KDE
// Plasma's compositor (platform/kwin) and over a fixture desktop described in
// JSON (platform/fixture_desktop.h). docs/wayland.md describes the parts that
// compositors need: handles, capabilities, access checks and picture batches.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/coordinates.h"
#include "platform/image.h"
#include "platform/window_pictures.h"

namespace pv {

// One screen. The first entry of a screen list is the main screen, whose frame
// has its origin at (0, 0).
struct ScreenListEntry {
    uint32_t displayId = 0;           // never 0 for a real display
    ScreenRect frame;                 // bottom-up global points, y growing upward
    double backingScaleFactor = 1.0;  // pixels per point
};

// One on-screen window, as the window list reports it (frontmost first).
struct WindowListEntry {
    int32_t sharingState = 0;  // 0: owner forbids reading its contents; 1 read-only; 2 read-write
    std::optional<std::string> ownerName;
    std::optional<std::string> title;
    uint32_t number = 0;
    int32_t layer = 0;
    WindowRect bounds;  // top-down points, origin at the main screen's top-left corner
    int32_t ownerPID = 0;
    // What people call the owning program (its desktop entry's Name, else its
    // class or process name); the inventory shows ownerName when unset.
    // ownerName stays what the inventory's rules compare ("Dock" for a panel).
    std::optional<std::string> applicationName;
    // The owning program's icon: an icon-theme name or an absolute file path.
    std::optional<std::string> applicationIcon;
    WindowHandle handle;  // the backend's own id where number is not it (KWin's uuid); empty otherwise
};

// Thrown by a window server that can no longer answer at all (for instance an
// X display that went away). Ordinary failures (one window gone) are reported
// through empty results instead.
struct PlatformError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class WindowServer {
public:
    virtual ~WindowServer() = default;

    // The computer's user-visible name.
    virtual std::string hostName() = 0;
    // Screens, main screen first.
    virtual std::vector<ScreenListEntry> screenList() = 0;
    // The display's product name; nullopt when the display reports none.
    virtual std::optional<std::string> productName(uint32_t displayId) = 0;
    // On-screen windows, frontmost first.
    virtual std::vector<WindowListEntry> windowList() = 0;
    // Ids of the displays (all of them, in list order) whose frames meet the
    // window-server rectangle, at most maxCount; nullopt when the lookup fails.
    virtual std::optional<std::vector<uint32_t>> displaysOfRect(const WindowRect& bounds, uint32_t maxCount) = 0;
    // Picture of one window. With bounds, the window is taken by that rectangle;
    // without, by its own bounds. framing adds the drop shadow around it.
    // nullopt when the window cannot be captured.
    virtual std::optional<Image> windowPicture(const std::optional<WindowRect>& bounds, uint32_t windowNumber,
                                               bool framing) = 0;
    // Picture of the whole desktop as the user sees it, in pixels.
    virtual std::optional<Image> desktopPicture() = 0;

    // ---- What compositor backends add. The defaults fit servers whose calls
    // ---- answer at once (X11, the fixture desktop).

    // "x11", "kwin", "fixture", ...: for messages and tests.
    virtual std::string backendName() const { return "unknown"; }
    // Default: covered windows whole, global positions, a desktop picture.
    virtual Capabilities capabilities() const;
    // Whether pictures can be had now (permission, a locked screen, a backend
    // for this session at all); kind None when they can. Cheap: called before
    // every capture.
    virtual Failure checkAccess() { return {}; }
    // Every request in flight at once, each ending by `deadline` at the
    // latest; onEach (any thread) as each result is final. Default: the
    // requests run one after the other through windowPicture on the thread
    // that waits for the batch, cancellation taking effect between two of
    // them; such calls always answer, so the deadline does not apply. A
    // PlatformError ends that request and all after it as CompositorLost.
    virtual std::unique_ptr<PictureBatch> requestPictures(std::vector<PictureRequest> requests,
                                                          std::chrono::milliseconds deadline,
                                                          PictureCallback onEach = {});

    // requestPictures, waiting until every result is final. Once `stop` is set
    // the batch is cancelled; a batch still open a second after its deadline
    // too.
    std::vector<PictureResult> takePictures(std::vector<PictureRequest> requests, std::chrono::milliseconds deadline,
                                            const std::atomic<bool>* stop = nullptr);
};

// Throws PlatformError with the message of the first result whose server can
// no longer answer.
void throwIfServerLost(const std::vector<PictureResult>& results);

// Where the frame lies inside a picture that windowPicture gave for the
// request, and the picture's scale and placement: the whole picture is the
// frame unless it was taken with framing, whose drop shadow is as wide left
// as right with a third of its height above.
WindowPicture placedPicture(Image image, const PictureRequest& request);

// The displays-of-a-rectangle rule for window servers that only know their
// screen list: screens whose frames, flipped into window-server coordinates
// with the main screen's height, meet bounds with a non-empty area.
std::vector<uint32_t> displaysMeetingRect(const std::vector<ScreenListEntry>& screens, const WindowRect& bounds,
                                          uint32_t maxCount);

}  // namespace pv
