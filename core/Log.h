#pragma once

#include "core/Format.h"

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

/// The one sink of diagnostics: the system log and standard error, one event at a time, from any
/// thread.
namespace Log {

/// A message longer than this many bytes is cut: a long text in its middle, since what a script
/// says last is why it failed; a long list at the end, and it is not even formatted further, so
/// that an event costs the same however long the list is.
inline constexpr std::size_t messageLimit = 1024;

enum class Severity { Info, Error };

/// Whether events also go to standard error (they do at start). Call before threads are started.
void setStandardErrorEnabled(bool enabled);

using Sink = std::function<void(Severity, std::string_view)>;

/// Sends every event to `sink` instead, on the thread that logs, until called again with an empty
/// function; one that is being logged may still come then. For tests. Any thread.
void capture(Sink sink);

/// While one lives, both logs name its subject in front of each event of the thread that made it.
/// So the events of several packages at once can be told apart. One at a time on a thread.
class Subject {
public:
    explicit Subject(std::string name);
    ~Subject();
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
};

/// Writes one event, whatever its length. Callers use logEvent() and logFailure() below.
void write(Severity severity, std::string_view message);

template <typename... Args>
void writeFormatted(Severity severity, std::string_view format, const Args&... args) {
    BoundedText out(messageLimit);
    appendFormat(out, format, std::array<FormatArgument, sizeof...(Args)>{FormatArgument(args)...});
    write(severity, out.take());
}

} // namespace Log

/// Logs one event; the directives are those of appendFormat.
template <typename... Args>
void logEvent(std::string_view format, const Args&... args) {
    Log::writeFormatted(Log::Severity::Info, format, args...);
}

/// Same, for a failure: the system log has it among its errors.
template <typename... Args>
void logFailure(std::string_view format, const Args&... args) {
    Log::writeFormatted(Log::Severity::Error, format, args...);
}
