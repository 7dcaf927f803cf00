#include "app/toolkit/UserNotification.h"

#include "app/toolkit/SessionBus.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QVariantMap>

namespace {

constexpr const char* desktops = "org.gtk.Notifications";

QDBusMessage forTheDesktop(const QString& identifier, const QString& summary, const QString& body,
                           const std::vector<NotificationAction>& actions) {
    qDBusRegisterMetaType<QList<QVariantMap>>();
    QVariantMap notification{{"title", summary}, {"body", body}, {"priority", "high"}};
    QList<QVariantMap> buttons;
    for (const NotificationAction& action : actions)
        buttons.push_back(
            {{"label", action.title}, {"action", "app." + action.name}, {"target", action.target}});
    notification["buttons"] = QVariant::fromValue(buttons);
    if (!buttons.empty()) {
        notification["default-action"] = buttons.front()["action"];
        notification["default-action-target"] = buttons.front()["target"];
    }
    QDBusMessage call = QDBusMessage::createMethodCall(desktops, "/org/gtk/Notifications", desktops,
                                                       "AddNotification");
    call << identifier << QString("run") << notification;
    return call;
}

QDBusMessage forAnyService(const QString& identifier, const QString& summary, const QString& body,
                           const std::vector<NotificationAction>& actions) {
    constexpr quint32 replacesNone = 0;
    constexpr qint32 theServicesTimeout = -1;
    QStringList buttons;
    for (const NotificationAction& action : actions)
        buttons << action.name + ' ' + action.target << action.title;
    QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.Notifications",
                                                       "/org/freedesktop/Notifications",
                                                       "org.freedesktop.Notifications", "Notify");
    // If the body may have markup, a name that looks like markup would be taken for it.
    call << "Kelpmoray" << replacesNone << identifier << summary << body.toHtmlEscaped() << buttons
         << QVariantMap{{"desktop-entry", identifier}} << theServicesTimeout;
    return call;
}

} // namespace

void notifyUser(const QString& identifier, const QString& summary, const QString& body,
                const std::vector<NotificationAction>& actions) {
    const auto bus = sessionBus();
    if (!bus)
        return;
    bool outlivesUs = false;
    if (!actions.empty()) {
        QDBusMessage ask =
            QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                           "org.freedesktop.DBus", "NameHasOwner");
        ask << desktops;
        constexpr int patience = 2'000; // milliseconds
        const QVariantList answer = bus->call(ask, QDBus::Block, patience).arguments();
        outlivesUs = !answer.empty() && answer.front().toBool();
    }
    bus->send((outlivesUs ? forTheDesktop : forAnyService)(identifier, summary, body, actions));
}
