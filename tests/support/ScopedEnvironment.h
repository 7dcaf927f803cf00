#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include <stdlib.h>

/// Sets an environment variable (or removes it, without a value) for its life.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string name, const std::optional<std::string>& value)
        : name_(std::move(name)) {
        if (const char* previous = std::getenv(name_.c_str()))
            previous_ = previous;
        set(value);
    }
    ~ScopedEnvironment() { set(previous_); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    void set(const std::optional<std::string>& value) const {
        if (value)
            setenv(name_.c_str(), value->c_str(), 1);
        else
            unsetenv(name_.c_str());
    }

    std::string name_;
    std::optional<std::string> previous_;
};

/// The search path with `folder` in front, so that the tools in it stand in for the system's.
[[nodiscard]] inline std::string pathWith(const std::string& folder) {
    return folder + ':' + std::getenv("PATH");
}
