#pragma once

#include "core/Log.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// Gathers what is logged during its life.
class LogCapture {
public:
    LogCapture() {
        Log::capture([this](std::string_view message) {
            const std::lock_guard lock(mutex_);
            messages_.emplace_back(message);
        });
    }
    ~LogCapture() { Log::capture({}); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] std::vector<std::string> messages() const {
        const std::lock_guard lock(mutex_);
        return messages_;
    }
    [[nodiscard]] long count(std::string_view message) const {
        return std::ranges::count(messages(), message);
    }
    [[nodiscard]] bool contains(std::string_view message) const { return count(message) > 0; }
    void clear() {
        const std::lock_guard lock(mutex_);
        messages_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> messages_;
};
