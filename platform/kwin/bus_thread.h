#pragma once
// A thread of our own with a Qt event loop, for the D-Bus traffic of one
// backend: replies, calls KWin makes to us, pipes and timers are all handled
// there, so any thread may wait for an answer without an event loop of its
// own (and the main thread without running one inside a call).
//
// Work is handed over in a queue of our own guarded by a standard mutex and
// woken by an eventfd, so that ThreadSanitizer sees every hand-over.

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

class QEventLoop;

namespace pv::kwin {

class BusThread {
public:
    // Starts the thread and returns once its event loop runs. Needs a
    // QCoreApplication.
    BusThread();
    // Runs the tasks still queued, then stops the loop and joins the thread.
    ~BusThread();
    BusThread(const BusThread&) = delete;
    BusThread& operator=(const BusThread&) = delete;

    // Runs task on the thread, after the tasks before it.
    void post(std::function<void()> task);
    // Runs task on the thread and waits until it has run. Not from the thread itself.
    void run(const std::function<void()>& task);
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

private:
    void loop();
    void drain();

    int wakeFd_ = -1;
    std::mutex mutex_;
    std::condition_variable started_;
    std::deque<std::function<void()>> tasks_;
    QEventLoop* loop_ = nullptr;
    bool running_ = false;
    std::thread thread_;
};

}  // namespace pv::kwin
