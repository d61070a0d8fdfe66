#include "app/threads.h"

#include <QObject>
#include <QPointer>
#include <QSocketNotifier>

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace pv {

namespace {

void rethrowOnMainThread(std::exception_ptr error);

class WorkerPool {
public:
    WorkerPool() {
        const unsigned n = std::max(2u, std::thread::hardware_concurrency());
        for (unsigned i = 0; i < n; ++i) threads_.emplace_back([this] { work(); });
    }
    ~WorkerPool() {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        for (auto& t : threads_) t.join();
    }

    void run(std::function<void()> task) {
        {
            std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
            ++unfinished_;
        }
        wake_.notify_one();
    }

    void waitForIdle() {
        std::unique_lock lock(mutex_);
        idle_.wait(lock, [this] { return unfinished_ == 0; });
    }

private:
    void work() {
        for (;;) {
            std::function<void()> task;
            {
                std::unique_lock lock(mutex_);
                wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
                if (tasks_.empty()) return;
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            std::exception_ptr error;
            try {
                task();
            } catch (...) {
                error = std::current_exception();
            }
            // Raised again on the main thread, whose event loop reports it and
            // ends; a worker thread has no one to tell. Handed over whole, so
            // that this thread holds no reference to it once posted.
            if (error) rethrowOnMainThread(std::move(error));
            task = nullptr;  // what it holds goes before it counts as finished
            std::lock_guard lock(mutex_);
            if (--unfinished_ == 0) idle_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable idle_;
    std::deque<std::function<void()>> tasks_;
    size_t unfinished_ = 0;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

WorkerPool& pool() {
    static WorkerPool instance;
    return instance;
}

// Tasks for the main thread; an eventfd wakes its event loop.
class MainThreadQueue {
public:
    MainThreadQueue() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), notifier_(fd_, QSocketNotifier::Read) {
        QObject::connect(&notifier_, &QSocketNotifier::activated, [this] { drain(); });
    }
    ~MainThreadQueue() { ::close(fd_); }

    // Runs task if context still exists then; without a context, always.
    void post(QObject* context, std::function<void()> task) {
        {
            std::lock_guard lock(mutex_);
            tasks_.push_back({QPointer<QObject>(context), context == nullptr, std::move(task)});
        }
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = ::write(fd_, &one, sizeof one);
    }

private:
    struct Entry {
        QPointer<QObject> context;
        bool always = false;
        std::function<void()> task;
    };

    void drain() {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t n = ::read(fd_, &count, sizeof count);
        for (;;) {
            Entry entry;
            {
                std::lock_guard lock(mutex_);
                if (tasks_.empty()) return;
                entry = std::move(tasks_.front());
                tasks_.pop_front();
            }
            if (entry.always || entry.context) entry.task();
        }
    }

    int fd_;
    QSocketNotifier notifier_;
    std::mutex mutex_;
    std::deque<Entry> tasks_;
};

MainThreadQueue* mainQueue = nullptr;

void rethrowOnMainThread(std::exception_ptr error) {
    if (!mainQueue) std::rethrow_exception(error);  // ends the program, as before
    mainQueue->post(nullptr, [error = std::move(error)] { std::rethrow_exception(error); });
}

}  // namespace

void runInBackground(std::function<void()> task) { pool().run(std::move(task)); }

void prepareMainThreadQueue() {
    if (!mainQueue) mainQueue = new MainThreadQueue;  // lives as long as the program
}

void runOnThreadOf(QObject* context, std::function<void()> task) { mainQueue->post(context, std::move(task)); }

void waitForBackgroundWork() { pool().waitForIdle(); }

}  // namespace pv
