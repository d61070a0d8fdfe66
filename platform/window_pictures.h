#pragma once
// What a window server says about its pictures beyond the pixels: how a
// backend names a window, what it can do, why something failed, and pictures
// asked for as a batch that ends by a deadline or when cancelled.
//
// X11 and the fixture desktop answer every picture call at once; compositors
// (KWin, GNOME Shell) answer D-Bus requests later, serve many requests of one
// frame together, and leave some unanswered (a minimised window, a locked
// screen). So requests go out together, each ends by a deadline, and a
// picture says where the window's frame lies inside it and at what scale.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/coordinates.h"
#include "platform/image.h"

namespace pv {

// A window as its backend names it. The inventory keys windows by the 32-bit
// number of their list entry; a backend whose own ids are strings (KWin's
// "{uuid}") or 64-bit numbers (GNOME Shell) hands out those numbers itself and
// keeps its own id here.
struct WindowHandle {
    uint64_t id = 0;  // X11: the window id; GNOME Shell: its 64-bit window id
    std::string key;  // KWin: "{uuid}"; empty where the number says it all
    bool empty() const { return id == 0 && key.empty(); }
    bool operator==(const WindowHandle&) const = default;
};

// What a backend can do; callers ask instead of guessing from its name.
enum class Capability : uint32_t {
    CoveredWindowsWhole = 1u << 0,  // a covered window's picture holds all of it
    GlobalPositions = 1u << 1,      // window bounds are true desktop positions
    DesktopPicture = 1u << 2,       // desktopPicture() gives the screens as shown
    ConcurrentPictures = 1u << 3,   // a batch is served faster than one request after another
    CompositorShadow = 1u << 4,     // framing gives the compositor's own shadow, not one we draw
    PerScreenScale = 1u << 5,       // screens may differ in backing scale
    NeedsPermission = 1u << 6,      // checkAccess() may answer NotAuthorised
};
using Capabilities = uint32_t;
constexpr Capabilities operator|(Capability a, Capability b) {
    return static_cast<uint32_t>(a) | static_cast<uint32_t>(b);
}
constexpr Capabilities operator|(Capabilities a, Capability b) { return a | static_cast<uint32_t>(b); }
constexpr bool has(Capabilities set, Capability c) { return (set & static_cast<uint32_t>(c)) != 0; }

// Why something could not be had, in kinds a caller treats differently.
enum class FailureKind {
    None,
    NotAuthorised,   // the compositor refuses us pictures; the remedy says what to install
    ScreenLocked,    // pictures are not served while the screen is locked
    WindowGone,      // the window closed since it was listed, or gives no picture
    NotOnScreen,     // minimised or on another desktop: not asked for
    NotReady,        // the window has no picture yet (its first frame is still to come)
    TimedOut,        // no answer by the deadline
    Cancelled,       // the batch was cancelled first
    CompositorLost,  // the window server or compositor can no longer answer at all
    Unsupported,     // no backend for this session; the remedy says what would work
    Other,
};

struct Failure {
    FailureKind kind = FailureKind::None;
    std::string message;  // what happened, for a person
    std::string remedy;   // what would make it work; empty when nothing would
    explicit operator bool() const { return kind != FailureKind::None; }
    // message and remedy as one line.
    std::string line() const { return remedy.empty() ? message : message + "; " + remedy; }
};

// One picture to take.
struct PictureRequest {
    uint32_t window = 0;               // the window list entry's number
    std::optional<WindowRect> bounds;  // take it by this rectangle instead of its own extent
    bool framing = false;              // with the shadow around the frame
    // What the caller lays the picture out by: the window's listed bounds
    // (points) and the pixels per point it expects. Backends that only return
    // pixels (X11, the fixture) derive the picture's frame and scale from them.
    WindowRect listedBounds;
    double scale = 1.0;
};

// A picture and where it belongs.
struct WindowPicture {
    Image image;
    double scale = 1.0;    // pixels of this picture per point
    WindowRect placement;  // where the whole picture lies on the desktop (top-down points)
    CanvasRect frame;      // the window's frame (or the asked rectangle) inside the picture, in its pixels
};

struct PictureResult {
    std::optional<WindowPicture> picture;  // set exactly when failure.kind is None
    Failure failure;
};

// Pictures in flight. Results come in request order.
class PictureBatch {
public:
    virtual ~PictureBatch() = default;
    // Ends every open request as Cancelled. Any thread, any number of times.
    virtual void cancel() = 0;
    // True once every request is final; waits at most `limit`. One thread at a time.
    virtual bool wait(std::chrono::milliseconds limit) = 0;
    // Every result, handed over (pictures are not copied): call once, only
    // after wait returned true.
    virtual std::vector<PictureResult> results() = 0;
    // A flag that cancels the batch once set, for batches that can look at it
    // between requests; the waiter watches it too.
    virtual void cancelWhen(const std::atomic<bool>* /*flag*/) {}
};

using PictureCallback = std::function<void(size_t index, const PictureResult&)>;

}  // namespace pv
