#include "app/platform/SessionBus.h"

#include <QFile>

std::optional<QDBusConnection> sessionBus() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS") &&
        (runtime.isEmpty() || !QFile::exists(runtime + "/bus")))
        return std::nullopt;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() ? std::optional(bus) : std::nullopt;
}
