#include "app/platform/UserNotification.h"

#include "app/platform/SessionBus.h"

#include <QDBusMessage>
#include <QVariantMap>

void notifyUser(const QString& identifier, const QString& summary, const QString& body) {
    const auto bus = sessionBus();
    if (!bus)
        return;
    constexpr quint32 replacesNone = 0;
    constexpr qint32 theServicesTimeout = -1;
    QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.Notifications",
                                                       "/org/freedesktop/Notifications",
                                                       "org.freedesktop.Notifications", "Notify");
    call << "Kelpmoray" << replacesNone << identifier << summary << body << QStringList()
         << QVariantMap{{"desktop-entry", identifier}} << theServicesTimeout;
    bus->send(call);
}
