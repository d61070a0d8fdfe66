#pragma once
// The two ways work crosses threads: onto a pool of worker threads, and back
// onto the main thread without waiting. Both carry the work in queues of our
// own guarded by standard mutexes, so that every hand-over is visible to
// ThreadSanitizer (Qt's own queues live in a library it cannot see into).

#include <functional>

class QObject;

namespace pv {

// Runs task on one of the worker threads.
void runInBackground(std::function<void()> task);

// Runs task on the main thread's event loop, after the events before it, as
// long as context (an object living on the main thread) still exists then.
// The main thread must have called prepareMainThreadQueue() first.
void runOnThreadOf(QObject* context, std::function<void()> task);

// Sets up the main thread's queue; called on the main thread, once its
// QCoreApplication exists. Further calls do nothing.
void prepareMainThreadQueue();

// Waits until every task given to runInBackground so far has ended.
void waitForBackgroundWork();

}  // namespace pv
