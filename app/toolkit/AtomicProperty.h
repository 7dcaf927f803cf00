#pragma once

#include <mutex>
#include <utility>

/// A value that is read and written whole, from any thread.
template <typename T>
class AtomicProperty {
public:
    AtomicProperty() = default;
    explicit AtomicProperty(T value) : value_(std::move(value)) {}

    [[nodiscard]] T get() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }
    void set(T value) {
        const std::lock_guard lock(mutex_);
        std::swap(value_, value);
    }

private:
    mutable std::mutex mutex_;
    T value_{};
};
