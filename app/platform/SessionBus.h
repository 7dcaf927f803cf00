#pragma once

#include <QDBusConnection>

#include <optional>

/// The session bus. None where no bus was started for this session: the bus's library would start
/// one now, which takes longer than all the rest of our start. Any thread.
[[nodiscard]] std::optional<QDBusConnection> sessionBus();
