#include "platform/window_server.h"

#include <cmath>

namespace pv {

namespace {

using Clock = std::chrono::steady_clock;

// The default batch: each request through windowPicture, in order, on the
// thread that waits; cancel() takes effect before the next request.
class SequentialBatch : public PictureBatch {
public:
    SequentialBatch(WindowServer& server, std::vector<PictureRequest> requests, PictureCallback onEach)
        : server_(server), requests_(std::move(requests)), results_(requests_.size()), onEach_(std::move(onEach)) {}

    void cancel() override { cancelled_ = true; }
    void cancelWhen(const std::atomic<bool>* flag) override { stop_ = flag; }

    bool wait(std::chrono::milliseconds limit) override {
        const auto until = Clock::now() + limit;
        while (next_ < requests_.size()) {
            if (cancelled_ || (stop_ && stop_->load())) {
                for (; next_ < requests_.size(); ++next_) end(next_, {FailureKind::Cancelled, "cancelled", ""});
                break;
            }
            run(next_++);
            if (Clock::now() >= until && next_ < requests_.size()) return false;
        }
        return true;
    }

    std::vector<PictureResult> results() override { return std::move(results_); }

private:
    void run(size_t i) {
        const PictureRequest& r = requests_[i];
        try {
            auto image = server_.windowPicture(r.bounds, r.window, r.framing);
            if (!image) return end(i, {FailureKind::WindowGone, "the window gives no picture", ""});
            results_[i].picture = placedPicture(std::move(*image), r);
            if (onEach_) onEach_(i, results_[i]);
        } catch (const PlatformError& e) {
            // Nothing after this can be answered either.
            for (; i < requests_.size(); ++i) end(i, {FailureKind::CompositorLost, e.what(), ""});
            next_ = requests_.size();
        }
    }

    void end(size_t i, Failure failure) {
        results_[i].failure = std::move(failure);
        if (onEach_) onEach_(i, results_[i]);
    }

    WindowServer& server_;
    std::vector<PictureRequest> requests_;
    std::vector<PictureResult> results_;
    PictureCallback onEach_;
    size_t next_ = 0;
    std::atomic<bool> cancelled_{false};
    const std::atomic<bool>* stop_ = nullptr;
};

}  // namespace

std::vector<uint32_t> displaysMeetingRect(const std::vector<ScreenListEntry>& screens, const WindowRect& bounds,
                                          uint32_t maxCount) {
    std::vector<uint32_t> ids;
    if (screens.empty()) return ids;
    const double mainHeight = screens.front().frame.height;
    for (const auto& s : screens) {
        if (ids.size() >= maxCount) break;
        if (toWindowSpace(s.frame, mainHeight).intersects(bounds)) ids.push_back(s.displayId);
    }
    return ids;
}

Capabilities WindowServer::capabilities() const {
    return Capability::CoveredWindowsWhole | Capability::GlobalPositions | Capability::DesktopPicture;
}

std::unique_ptr<PictureBatch> WindowServer::requestPictures(std::vector<PictureRequest> requests,
                                                            std::chrono::milliseconds, PictureCallback onEach) {
    return std::make_unique<SequentialBatch>(*this, std::move(requests), std::move(onEach));
}

std::vector<PictureResult> WindowServer::takePictures(std::vector<PictureRequest> requests,
                                                      std::chrono::milliseconds deadline,
                                                      const std::atomic<bool>* stop) {
    auto batch = requestPictures(std::move(requests), deadline);
    batch->cancelWhen(stop);
    const auto giveUp = Clock::now() + deadline + std::chrono::seconds(1);
    // With a stop flag to watch, wait in short steps; else all at once.
    const auto step = stop ? std::chrono::milliseconds(20) : deadline + std::chrono::seconds(1);
    bool cancelled = false;
    while (!batch->wait(step)) {
        if (!cancelled && ((stop && stop->load()) || Clock::now() >= giveUp)) {
            batch->cancel();
            cancelled = true;
        }
    }
    return batch->results();
}

void throwIfServerLost(const std::vector<PictureResult>& results) {
    for (const auto& r : results)
        if (r.failure.kind == FailureKind::CompositorLost) throw PlatformError(r.failure.line());
}

WindowPicture placedPicture(Image image, const PictureRequest& request) {
    WindowPicture p;
    p.scale = request.scale > 0 ? request.scale : 1.0;
    const double w = image.width, h = image.height;
    if (request.bounds) {
        p.placement = *request.bounds;
        p.frame = {0, 0, w, h};
    } else if (request.framing) {
        const WindowRect& b = request.listedBounds;
        const double frameW = b.width * p.scale, frameH = b.height * p.scale;
        p.frame = {std::fabs((w - frameW) * 0.5), std::fabs((h - frameH) / 3), frameW, frameH};
        p.placement = {b.x - p.frame.x / p.scale, b.y - p.frame.y / p.scale, w / p.scale, h / p.scale};
    } else {
        p.placement = request.listedBounds;
        p.frame = {0, 0, w, h};
    }
    p.image = std::move(image);
    return p;
}

}  // namespace pv
