#pragma once
// A window server in front of another whose pictures, when asked for off the
// main thread (by the preview's job), wait at a gate the test opens, or fail.
// It also records how many pictures of one window were being taken at once.

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "platform/window_server.h"

namespace pv::test {

class GatedWindowServer : public WindowServer {
public:
    explicit GatedWindowServer(WindowServer& inner) : inner_(inner), mainThread_(std::this_thread::get_id()) {}

    // Off-main-thread pictures wait from close() until open().
    void close() {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    void open() {
        {
            std::lock_guard lock(mutex_);
            closed_ = false;
        }
        changed_.notify_all();
    }
    // Off-main-thread pictures throw as a lost display does.
    void failOffMainThread(bool fail) {
        std::lock_guard lock(mutex_);
        fail_ = fail;
    }
    // How many off-main-thread requests are waiting at the gate.
    int waiting() const {
        std::lock_guard lock(mutex_);
        return waiting_;
    }
    // The most pictures of any one window taken at the same time.
    int mostAtOnce() const {
        std::lock_guard lock(mutex_);
        return mostAtOnce_;
    }

    std::string hostName() override { return inner_.hostName(); }
    std::vector<ScreenListEntry> screenList() override { return inner_.screenList(); }
    std::optional<std::string> productName(uint32_t id) override { return inner_.productName(id); }
    std::vector<WindowListEntry> windowList() override { return inner_.windowList(); }
    std::optional<std::vector<uint32_t>> displaysOfRect(const WindowRect& r, uint32_t n) override {
        return inner_.displaysOfRect(r, n);
    }
    std::optional<Image> desktopPicture() override { return inner_.desktopPicture(); }

    std::optional<Image> windowPicture(const std::optional<WindowRect>& bounds, uint32_t number,
                                       bool framing) override {
        {
            std::unique_lock lock(mutex_);
            if (std::this_thread::get_id() != mainThread_) {
                ++waiting_;
                changed_.wait(lock, [this] { return !closed_; });
                --waiting_;
                if (fail_) throw PlatformError("X display connection lost");
            }
            mostAtOnce_ = std::max(mostAtOnce_, ++inFlight_[number]);
        }
        auto picture = inner_.windowPicture(bounds, number, framing);
        std::lock_guard lock(mutex_);
        --inFlight_[number];
        return picture;
    }

private:
    WindowServer& inner_;
    const std::thread::id mainThread_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool closed_ = false;
    bool fail_ = false;
    int waiting_ = 0;
    std::map<uint32_t, int> inFlight_;
    int mostAtOnce_ = 0;
};

}  // namespace pv::test
