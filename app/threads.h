#pragma once
// The two ways work crosses threads: onto the global pool at high priority,
// and back onto the thread of a context object (the main thread) without
// waiting. Under ThreadSanitizer each hand-over is announced to it, since the
// queues that carry them live inside Qt, which is not instrumented.

#include <functional>

class QObject;

namespace pv {

void runInBackground(std::function<void()> task);
void runOnThreadOf(QObject* context, std::function<void()> task);

}  // namespace pv
