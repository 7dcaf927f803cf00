#include "core/platform/ReadWriteProcess.h"

#include <csignal>

namespace {

ReadWriteProcess start(const std::string& command, const char* mode) {
    // An ignored signal would stay ignored in the command.
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
