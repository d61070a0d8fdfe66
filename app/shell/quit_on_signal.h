#pragma once
// Turns SIGINT, SIGTERM and SIGHUP into an orderly quit of the Qt event loop,
// so that a kill or the end of the session stores the settings like Quit does.

#include <QObject>

class QSocketNotifier;

namespace pv {

class QuitOnSignal : public QObject {
    Q_OBJECT

public:
    explicit QuitOnSignal(QObject* parent = nullptr);
    ~QuitOnSignal() override;

signals:
    void quitRequested(int signalNumber);

private:
    QSocketNotifier* notifier_ = nullptr;
};

}  // namespace pv
