#include "platform/kwin/compositor_bus.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>

#include <atomic>

namespace pv {

bool serviceOnSessionBus(const QString& service) {
    auto bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface()->isServiceRegistered(service);
}

std::optional<CompositorBus> connectToCompositor(const std::string& busAddress, const QString& service,
                                                 const std::string& backend, const std::string& owner,
                                                 std::string* error) {
    if (!QCoreApplication::instance()) {
        *error = "the " + backend + " backend needs a Qt application";
        return std::nullopt;
    }
    const std::string address =
        busAddress.empty() ? qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS").toStdString() : busAddress;
    if (address.empty()) {
        *error = "there is no session bus (DBUS_SESSION_BUS_ADDRESS is not set)";
        return std::nullopt;
    }
    static std::atomic<int> instances{0};
    const QString name = QStringLiteral("plenavue-compositor-%1").arg(++instances);
    QDBusConnection bus = QDBusConnection::connectToBus(QString::fromStdString(address), name);
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(service)) {
        *error = bus.isConnected() ? owner + " is not on the session bus"
                                   : "cannot reach the session bus: " + bus.lastError().message().toStdString();
        QDBusConnection::disconnectFromBus(name);
        return std::nullopt;
    }
    return CompositorBus{bus, name};
}

}  // namespace pv
