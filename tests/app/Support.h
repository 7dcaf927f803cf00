#pragma once

#include "core/Log.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

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

/// Gathers what is logged while it lives.
class LogLines {
public:
    LogLines() {
        Log::capture([this](std::string_view line) {
            const std::lock_guard lock(mutex_);
            lines_.emplace_back(line);
        });
    }
    ~LogLines() { Log::capture({}); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    [[nodiscard]] std::vector<std::string> all() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }
    [[nodiscard]] bool contains(const std::string& line) const {
        const std::vector<std::string> lines = all();
        return std::ranges::find(lines, line) != lines.end();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};
