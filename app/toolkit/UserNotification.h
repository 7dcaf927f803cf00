#pragma once

#include <QString>

#include <vector>

/// A button of a notification. `name` is an action of org.freedesktop.Application, so that a
/// desktop that keeps notifications starts the application for it.
struct NotificationAction {
    QString name;
    QString title;
    QString target; ///< what goes along with it; may be empty
};

/// Tells a person who looks elsewhere what has happened, on the session bus: through
/// org.gtk.Notifications if it is there, since that outlives the process, else through
/// org.freedesktop.Notifications (defined by freedesktop.org under "Desktop Notifications"), with
/// "NAME TARGET" as the key of an action. `identifier` names the application's desktop entry and
/// icon. If no service shows notifications, nothing happens. Any thread.
void notifyUser(const QString& identifier, const QString& summary, const QString& body,
                const std::vector<NotificationAction>& actions = {});
