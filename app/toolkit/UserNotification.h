#pragma once

#include <QString>

/// Shows a person something that became of an application outside its window: the
/// interface org.freedesktop.Notifications (defined by freedesktop.org under "Desktop
/// Notifications") on the session bus. `identifier` names the application's desktop entry and icon.
/// Without a service that shows notifications nothing happens. Any thread.
void notifyUser(const QString& identifier, const QString& summary, const QString& body);
