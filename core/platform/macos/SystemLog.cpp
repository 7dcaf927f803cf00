#include "core/platform/SystemLog.h"

#include <cstdlib>

#include <os/log.h>

void writeToSystemLog(std::string_view message) {
    static const os_log_t log = os_log_create("com.quenbark.kelpmoray", "events");
    // What is not declared public reads "<private>" in the log.
    os_log(log, "%{public}.*s", static_cast<int>(message.size()), message.data());
}

std::string processName() {
    return getprogname();
}
