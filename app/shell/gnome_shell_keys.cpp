#include "app/shell/gnome_shell_keys.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QTimer>
#include <QVariantMap>

#include "app/app_delegate.h"

namespace pv {

namespace {

const QString kName = QStringLiteral("com.veltrano.Plenavue");
const QString kPath = QStringLiteral("/com/veltrano/Plenavue");
const QString kExtension = QStringLiteral("com.veltrano.Plenavue.Shell");

}  // namespace

std::unique_ptr<GnomeShellKeys> GnomeShellKeys::install(AppDelegate& delegate, std::vector<std::string>* held) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(kExtension)) return nullptr;
    // What the extension grabbed: the accelerator, or "taken: <accelerator>".
    QDBusMessage get = QDBusMessage::createMethodCall(kExtension, "/com/veltrano/Plenavue/Shell",
                                                      "org.freedesktop.DBus.Properties", "Get");
    get.setArguments({QStringLiteral("com.veltrano.Plenavue.Shell1"), QStringLiteral("HotKeys")});
    const QDBusMessage reply = bus.call(get, QDBus::Block, 3000);
    const auto keys = qdbus_cast<QMap<QString, QString>>(
        qdbus_cast<QDBusVariant>(reply.arguments().value(0)).variant().value<QDBusArgument>());
    for (const QString& state : keys)
        if (state.startsWith("taken: ")) held->push_back(state.mid(7).toStdString());

    std::unique_ptr<GnomeShellKeys> keysObject(new GnomeShellKeys(delegate));
    if (!bus.registerObject(kPath, keysObject.get(), QDBusConnection::ExportScriptableSlots)) return nullptr;
    if (!bus.registerService(kName)) {
        bus.unregisterObject(kPath);
        return nullptr;
    }
    return keysObject;
}

GnomeShellKeys::~GnomeShellKeys() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterService(kName);
    bus.unregisterObject(kPath);
}

void GnomeShellKeys::HotKey(const QString& name, uint) {
    // Only the shell presses keys; any other caller is told no.
    const QString shell = connection().interface()->serviceOwner("org.gnome.Shell");
    if (message().service() != shell) {
        sendErrorReply(QDBusError::AccessDenied, "only GNOME Shell sends hot keys");
        return;
    }
    // Outside the D-Bus delivery, as the X11 hot keys run outside Qt's event dispatch.
    if (name == "capture-all") QTimer::singleShot(0, &delegate_, [this] { delegate_.capture(); });
    if (name == "capture-selected") QTimer::singleShot(0, &delegate_, [this] { delegate_.captureSelected(); });
}

}  // namespace pv
