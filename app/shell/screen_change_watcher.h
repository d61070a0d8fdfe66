#pragma once
// Screen changes arrive in bursts (adding a monitor moves and resizes the
// others too); this turns each burst into one `settled` signal, shortly
// after its last change.

#include <QObject>
#include <QTimer>

class QGuiApplication;
class QScreen;

namespace pv {

class ScreenChangeWatcher : public QObject {
    Q_OBJECT

public:
    explicit ScreenChangeWatcher(int settleMilliseconds = 200, QObject* parent = nullptr);

    // Follows the application's screens: added, removed, moved, resized, primary changed.
    void watch(QGuiApplication& app);

public slots:
    void noteChange();

signals:
    void settled();

private:
    void watchScreen(QScreen* screen);
    QTimer timer_;
};

}  // namespace pv
