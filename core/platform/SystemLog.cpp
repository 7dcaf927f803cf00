#include "core/platform/SystemLog.h"

#include <cerrno>
#include <cstdlib>

#include <syslog.h>

void writeToSystemLog(std::string_view message) {
    syslog(LOG_USER | LOG_INFO, "%.*s", static_cast<int>(message.size()), message.data());
}

std::string processName() {
#ifdef __GLIBC__
    return program_invocation_short_name;
#else
    return getprogname();
#endif
}
