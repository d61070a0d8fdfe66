#pragma once
// The system-wide hot keys in a KDE Plasma session, through its global
// shortcut service (org.kde.kglobalaccel, served by KWin) over D-Bus: the
// actions "capture-all" (Shift+Meta+5) and "capture-selected" (Shift+Meta+6)
// of the component "plenavue", which people can change in the system
// settings. Each action carries the digit with Shift and, for every keyboard
// layout of the session, the symbol Shift and that digit type, since KWin
// matches shortcuts by that symbol.

#include <QObject>

#include <memory>
#include <string>
#include <vector>

namespace pv {

class AppDelegate;

class KdeGlobalShortcuts : public QObject {
    Q_OBJECT

public:
    // nullptr when the service is not on the session bus. *held receives the
    // combinations another program holds.
    static std::unique_ptr<KdeGlobalShortcuts> install(AppDelegate& delegate, std::vector<std::string>* held);
    // The actions stay registered (and their keys kept) but inactive.
    ~KdeGlobalShortcuts() override;

    // The key codes (Qt::Key with modifiers) an action is registered with.
    static std::vector<int> keysFor(int digit);

private slots:
    void pressed(const QString& component, const QString& action, qlonglong timestamp);

private:
    explicit KdeGlobalShortcuts(AppDelegate& delegate);
    AppDelegate& delegate_;
};

}  // namespace pv
