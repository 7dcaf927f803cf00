#include "app/results/LauncherEntry.h"

#include "app/toolkit/SessionBus.h"

#include <QDBusMessage>
#include <QGuiApplication>
#include <QVariantMap>

void LauncherEntry::show(std::optional<double> share) {
    const auto percent = share ? std::optional(static_cast<int>(100 * *share)) : std::nullopt;
    if (percent == shown_)
        return;
    shown_ = percent;
    const auto bus = sessionBus();
    if (!bus)
        return;
    QDBusMessage update = QDBusMessage::createSignal("/com/quenbark/kelpmoray",
                                                     "com.canonical.Unity.LauncherEntry", "Update");
    update << "application://" + QGuiApplication::desktopFileName() + ".desktop"
           << QVariantMap{{"progress", percent.value_or(0) / 100.0},
                          {"progress-visible", percent.has_value()}};
    bus->send(update);
}
