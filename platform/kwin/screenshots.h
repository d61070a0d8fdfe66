#pragma once
// Pictures from KWin's org.kde.KWin.ScreenShot2: each request goes out with
// the write end of a pipe, the reply describes the picture (size, stride, a
// QImage format, scale), and the raw pixels follow on the pipe. All requests
// of a batch are in flight at once (KWin serves those of one frame together);
// each ends by the batch's deadline, since a minimised window or a locked
// screen is never answered, and all end at once when KWin leaves the bus.

#include <QDBusConnection>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/window_pictures.h"

namespace pv::kwin {

class BusThread;

// A picture as KWin sent it, converted to our pixels.
struct RawPicture {
    Image image;
    double scale = 1.0;
};

struct ShotOrder {
    QString method;  // "CaptureWindow" or "CaptureWorkspace"
    QString handle;  // the window's id, for CaptureWindow
    QVariantMap options;
    // Set: the request is not sent and ends with this failure.
    std::optional<Failure> refuse;
    // Makes the result of the whole picture (on the bus thread).
    std::function<PictureResult(RawPicture)> finish;
};

// What to tell a person whom KWin refuses pictures.
Failure notAuthorised(const std::string& kwinMessage);

class ScreenShots {
public:
    // bus: a connection to the session bus KWin is on; its replies and the
    // pipes are handled on thread.
    ScreenShots(BusThread& thread, QDBusConnection bus);
    // Ends the batches still open as Cancelled.
    ~ScreenShots();
    ScreenShots(const ScreenShots&) = delete;
    ScreenShots& operator=(const ScreenShots&) = delete;

    std::unique_ptr<PictureBatch> send(std::vector<ShotOrder> orders, std::chrono::milliseconds deadline,
                                       PictureCallback onEach = {});
    // True once KWin has left the bus.
    bool compositorGone() const { return gone_; }

    struct State;
    class Work;

private:
    struct Service;
    BusThread& thread_;
    QDBusConnection bus_;
    std::atomic<bool> gone_{false};
    std::shared_ptr<Service> service_;  // made, used and destroyed on the bus thread
};

}  // namespace pv::kwin
