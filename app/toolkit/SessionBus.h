#pragma once

#include <QDBusConnection>

#include <optional>

/// The session bus. None if no bus was started for this session: the bus's library would start
/// one now, which takes longer than all the rest of our start. None either if it did not answer
/// within two seconds when first asked for. Any thread.
[[nodiscard]] std::optional<QDBusConnection> sessionBus();
