#pragma once
// The system-wide hot keys in a GNOME Shell session: our Shell extension grabs
// Shift+Super+5 ("capture-all") and Shift+Super+6 ("capture-selected") and
// calls HotKey(name, timestamp) on com.veltrano.Plenavue, the name this
// object owns on the session bus. Calls from anyone but GNOME Shell itself
// are refused.

#include <QDBusContext>
#include <QObject>

#include <memory>
#include <string>
#include <vector>

namespace pv {

class AppDelegate;

class GnomeShellKeys : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.veltrano.Plenavue.Commands")

public:
    // nullptr when our extension is not serving or the name is taken (another
    // Plenavue runs). *held receives the combinations the extension could not grab.
    static std::unique_ptr<GnomeShellKeys> install(AppDelegate& delegate, std::vector<std::string>* held);
    ~GnomeShellKeys() override;

public slots:
    Q_SCRIPTABLE void HotKey(const QString& name, uint timestamp);

private:
    explicit GnomeShellKeys(AppDelegate& delegate) : delegate_(delegate) {}
    AppDelegate& delegate_;
};

}  // namespace pv
