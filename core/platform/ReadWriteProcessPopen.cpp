#include "core/platform/ReadWriteProcess.h"

#include <csignal>
#include <mutex>

namespace {

ReadWriteProcess start(const std::string& command, const char* mode) {
    // An ignored signal would stay ignored in the command. While another thread starts one it is
    // not to be put back; whoever writes to a gone reader at this moment is ended.
    static std::mutex one;
    const std::lock_guard lock(one);
    void (*previous)(int) = std::signal(SIGPIPE, SIG_DFL);
    std::FILE* stream = popen(command.c_str(), mode);
    std::signal(SIGPIPE, previous);
    return {stream, -1};
}

} // namespace

ReadWriteProcess openRead(const std::string& command) {
    return start(command, "r");
}

ReadWriteProcess openReadWrite(const std::string& command) {
    return start(command, "r+");
}

void closeProcess(const ReadWriteProcess& process) {
    pclose(process.stream);
}
