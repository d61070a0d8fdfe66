#include "platform/kwin/bus_thread.h"

#include <QEventLoop>
#include <QSocketNotifier>

#include <sys/eventfd.h>
#include <unistd.h>

namespace pv::kwin {

BusThread::BusThread() : wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    thread_ = std::thread([this] { loop(); });
    std::unique_lock lock(mutex_);
    started_.wait(lock, [this] { return running_; });
}

BusThread::~BusThread() {
    post([this] { loop_->quit(); });
    thread_.join();
    ::close(wakeFd_);
}

void BusThread::post(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t n = ::write(wakeFd_, &one, sizeof one);
}

void BusThread::run(const std::function<void()>& task) {
    std::mutex doneMutex;
    std::condition_variable doneCv;
    bool done = false;
    post([&] {
        task();
        std::lock_guard lock(doneMutex);
        done = true;
        doneCv.notify_all();
    });
    std::unique_lock lock(doneMutex);
    doneCv.wait(lock, [&] { return done; });
}

void BusThread::loop() {
    QEventLoop loop;
    QSocketNotifier wake(wakeFd_, QSocketNotifier::Read);
    QObject::connect(&wake, &QSocketNotifier::activated, &loop, [this] { drain(); });
    {
        std::lock_guard lock(mutex_);
        loop_ = &loop;
        running_ = true;
    }
    started_.notify_all();
    loop.exec();
    drain();  // what was posted together with the quit
}

void BusThread::drain() {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t n = ::read(wakeFd_, &count, sizeof count);
    for (;;) {
        std::function<void()> task;
        {
            std::lock_guard lock(mutex_);
            if (tasks_.empty()) return;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

}  // namespace pv::kwin
