#include "core/platform/ReadWriteProcess.h"

ReadWriteProcess openReadWrite(const std::string& command) {
    return {popen(command.c_str(), "r+"), -1};
}

void closeReadWrite(const ReadWriteProcess& process) {
    pclose(process.stream);
}
