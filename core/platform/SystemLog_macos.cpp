#include "core/MainBundle.h"
#include "core/platform/SystemLog.h"

#include <cstdlib>

#include <os/log.h>

void writeToSystemLog(Log::Severity severity, std::string_view message) {
    static const os_log_t log = os_log_create(applicationIdentifier, "events");
    // What is not declared public reads "<private>" in the log.
    const auto type = severity == Log::Severity::Error ? OS_LOG_TYPE_ERROR : OS_LOG_TYPE_DEFAULT;
    os_log_with_type(log, type, "%{public}.*s", static_cast<int>(message.size()), message.data());
}

std::string processName() {
    return getprogname();
}
