#include "app/threads.h"

#include <QMetaObject>
#include <QObject>
#include <QThreadPool>

#include <memory>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#define PV_HANDOVER_RELEASE(p) __tsan_release(p)
#define PV_HANDOVER_ACQUIRE(p) __tsan_acquire(p)
#else
#define PV_HANDOVER_RELEASE(p) ((void)(p))
#define PV_HANDOVER_ACQUIRE(p) ((void)(p))
#endif

namespace pv {

namespace {

// The task travels in a block of its own, whose address marks the hand-over:
// everything written before it is released is seen after it is acquired.
std::shared_ptr<std::function<void()>> handOver(std::function<void()> task) {
    auto block = std::make_shared<std::function<void()>>(std::move(task));
    PV_HANDOVER_RELEASE(block.get());
    return block;
}

void receive(const std::shared_ptr<std::function<void()>>& block) {
    PV_HANDOVER_ACQUIRE(block.get());
    (*block)();
}

}  // namespace

void runInBackground(std::function<void()> task) {
    auto block = handOver(std::move(task));
    QThreadPool::globalInstance()->start([block] { receive(block); }, QThread::HighPriority);
}

void runOnThreadOf(QObject* context, std::function<void()> task) {
    auto block = handOver(std::move(task));
    QMetaObject::invokeMethod(context, [block] { receive(block); }, Qt::QueuedConnection);
}

}  // namespace pv
