#include "core/platform/SystemLog.h"

#include <cerrno>
#include <cstdlib>

#include <syslog.h>

void writeToSystemLog(Log::Severity severity, std::string_view message) {
    const int priority = severity == Log::Severity::Error ? LOG_ERR : LOG_INFO;
    syslog(LOG_USER | priority, "%.*s", static_cast<int>(message.size()), message.data());
}

std::string processName() {
#ifdef __GLIBC__
    return program_invocation_short_name;
#else
    return getprogname();
#endif
}
