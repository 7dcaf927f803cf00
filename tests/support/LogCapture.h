#pragma once

#include "core/Log.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// Gathers what is logged during its life, on any thread.
class LogCapture {
public:
    LogCapture() {
        Log::capture([state = state_](Log::Severity severity, std::string_view message) {
            const std::lock_guard lock(state->mutex);
            state->messages.emplace_back(message);
            if (severity == Log::Severity::Error)
                state->failures.emplace_back(message);
        });
    }
    ~LogCapture() { Log::capture({}); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] std::vector<std::string> messages() const {
        const std::lock_guard lock(state_->mutex);
        return state_->messages;
    }
    /// Those of them that were logged as failures.
    [[nodiscard]] std::vector<std::string> failures() const {
        const std::lock_guard lock(state_->mutex);
        return state_->failures;
    }
    [[nodiscard]] long count(std::string_view message) const {
        return std::ranges::count(messages(), message);
    }
    [[nodiscard]] bool contains(std::string_view message) const { return count(message) > 0; }
    void clear() {
        const std::lock_guard lock(state_->mutex);
        state_->messages.clear();
        state_->failures.clear();
    }

private:
    /// Outlives the capture if a thread is just logging at its end.
    struct State {
        std::mutex mutex;
        std::vector<std::string> messages;
        std::vector<std::string> failures;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};
