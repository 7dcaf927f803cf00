#include "core/Log.h"

#include "base/Printable.h"
#include "core/Text.h"
#include "core/platform/SystemLog.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>

#include <unistd.h>

namespace {

bool standardErrorEnabled = true;
std::mutex captureMutex;
std::shared_ptr<const Log::Sink> captureSink;

thread_local std::string subjectOfThread; ///< "[NAME] ", or empty

std::shared_ptr<const Log::Sink> currentCapture() {
    const std::lock_guard lock(captureMutex);
    return captureSink;
}

/// "2026-11-24 19:51:38.123 kelpmoray[4711] ": the time and the process.
std::string prefix() {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    const auto milliseconds = duration_cast<std::chrono::milliseconds>(now.time_since_epoch()) % 1s;
    std::tm local{};
    localtime_r(&seconds, &local);
    char time[32];
    std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &local);
    char fraction[16];
    std::snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(milliseconds.count()));
    return std::string(time) + fraction + ' ' + processName() + '[' + std::to_string(getpid()) +
           "] ";
}

/// A message may have several lines, and holds names that a terminal must not obey.
std::string printableLines(std::string_view message) {
    std::string shown;
    for (const std::string_view line : split(message, "\n"))
        shown.append(base::printable(line)).append("\n");
    shown.pop_back();
    return shown;
}

} // namespace

void Log::setStandardErrorEnabled(bool enabled) {
    standardErrorEnabled = enabled;
}

void Log::capture(Sink sink) {
    auto shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
    const std::lock_guard lock(captureMutex);
    captureSink = std::move(shared);
}

Log::Subject::Subject(std::string name) {
    subjectOfThread = '[' + std::move(name) + "] ";
}

Log::Subject::~Subject() {
    subjectOfThread.clear();
}

void Log::write(Severity severity, std::string_view message) {
    if (const auto capture = currentCapture()) {
        (*capture)(severity, message);
        return;
    }
    const std::string about = subjectOfThread + std::string(message);
    writeToSystemLog(severity, about);
    if (standardErrorEnabled) {
        static const bool isTerminal = isatty(STDERR_FILENO) != 0;
        const std::string line =
            prefix().append(isTerminal ? printableLines(about) : about).append("\n");
        // One call a line, so that the lines of two threads do not mix.
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
}
