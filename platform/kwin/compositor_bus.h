#pragma once
// The private session-bus connection a compositor backend talks through
// (KWin's, and GNOME Shell's through our extension).

#include <QDBusConnection>
#include <QString>

#include <optional>
#include <string>

namespace pv {

struct CompositorBus {
    QDBusConnection bus;
    QString name;  // the connection's name, for disconnectFromBus
};

// Whether `service` has an owner on the application's session bus.
bool serviceOnSessionBus(const QString& service);

// A new private connection to the bus at `busAddress` ($DBUS_SESSION_BUS_ADDRESS
// when empty) on which `service` has an owner. nullopt with one line in
// *error otherwise: no Qt application ("the <backend> backend needs a Qt
// application"), no bus, or "<owner> is not on the session bus".
std::optional<CompositorBus> connectToCompositor(const std::string& busAddress, const QString& service,
                                                 const std::string& backend, const std::string& owner,
                                                 std::string* error);

}  // namespace pv
