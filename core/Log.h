#pragma once

#include "core/Format.h"

#include <functional>
#include <string>
#include <string_view>

/// The one sink of diagnostics: the system log and standard error, one event at a time, from any
/// thread.
namespace Log {

/// A message longer than this many bytes is cut, with a mark at its end; it is not even formatted
/// further, so that an event costs the same however long the list is that it names.
inline constexpr std::size_t messageLimit = 1024;

/// Whether events also go to standard error (they do at start). Call before threads are started.
void setStandardErrorEnabled(bool enabled);

using Sink = std::function<void(std::string_view)>;

/// Sends every event to `sink` instead, on the thread that logs, until called again with an empty
/// function; one that is being logged may still come then. For tests. Any thread.
void capture(Sink sink);

/// Writes one event, whatever its length. logEvent() below is what everybody calls.
void write(std::string_view message);

} // namespace Log

/// Logs one event; the directives are those of appendFormat.
template <typename... Args>
void logEvent(std::string_view format, const Args&... args) {
    BoundedText out(Log::messageLimit);
    appendFormat(out, format, std::array<FormatArgument, sizeof...(Args)>{FormatArgument(args)...});
    Log::write(out.take());
}
