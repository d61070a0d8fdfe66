#pragma once
// Runs the event loop until a condition holds, as the controller's background
// work reports back through it. The limit only catches hangs.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <functional>

namespace pv::test {

inline bool waitFor(const std::function<bool()>& done, int limitMs = 60000) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > limitMs) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
    return true;
}

}  // namespace pv::test
