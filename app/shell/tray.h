#pragma once
// The tray item: our camera icon, a tool tip naming the hot keys, and a menu
// reaching every command of the application.

#include <QMenu>
#include <QSystemTrayIcon>

namespace pv {

class AppDelegate;

class Tray : public QObject {
    Q_OBJECT

public:
    explicit Tray(AppDelegate& delegate, QObject* parent = nullptr);

    static QString toolTipText();

    void show();
    // A notification from the tray (a finished capture, a hot key problem).
    void notify(const QString& title, const QString& text, bool warning);

    QSystemTrayIcon& icon() { return icon_; }
    QMenu& menu() { return menu_; }

signals:
    void quitRequested();

private:
    QSystemTrayIcon icon_;
    QMenu menu_;
};

}  // namespace pv
