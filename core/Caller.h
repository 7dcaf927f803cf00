#pragma once

#include "core/Log.h"

#include <array>
#include <string>
#include <string_view>

/// The object on whose behalf the core works, and its method: what log lines name.
struct Caller {
    std::string className;
    std::string description;
    std::string method = {};

    /// The same object in another method.
    [[nodiscard]] Caller in(const char* otherMethod) const {
        return {className, description, otherMethod};
    }

    /// Logs one event: the description, a dash, the method, and then `format` as for logEvent().
    template <typename... Args>
    void step(std::string_view format, const Args&... args) const {
        BoundedText out(Log::messageLimit);
        appendFormat(out, "%@-%@", std::array{FormatArgument(description), FormatArgument(method)});
        appendFormat(out, format,
                     std::array<FormatArgument, sizeof...(Args)>{FormatArgument(args)...});
        Log::write(Log::Severity::Info, out.take());
    }
};

inline void describe(BoundedText& out, const Caller& caller) {
    out.append(caller.description);
}
