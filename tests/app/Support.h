#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include <functional>

/// Runs the event loop until `condition` holds; false if it does not within a generous time.
inline bool waitUntil(const std::function<bool()>& condition) {
    const QDeadlineTimer deadline(20'000);
    QTimer wake; // for conditions that another thread fulfils
    wake.start(2);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}
