#pragma once

#include <cstdio>
#include <string>

#include <sys/types.h>

/// A shell command whose standard input and output are one stream.
struct ReadWriteProcess {
    std::FILE* stream = nullptr; ///< null when the command could not be started
    pid_t pid = -1;
};

/// Starts `command` with `/bin/sh -c`, as popen() does in the read-write mode that not every C
/// library has.
[[nodiscard]] ReadWriteProcess openReadWrite(const std::string& command);

/// Closes the stream and waits for the command to end.
void closeReadWrite(const ReadWriteProcess& process);
