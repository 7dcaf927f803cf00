#pragma once

#include <cstdio>
#include <string>

#include <sys/types.h>

/// A shell command and the stream to it.
struct ReadWriteProcess {
    std::FILE* stream = nullptr; ///< null when the command could not be started
    pid_t pid = -1;
};

/// Starts `command` with `/bin/sh -c` and its standard output as the stream, as popen() does; but
/// SIGPIPE ends the command even where this process ignores it.
[[nodiscard]] ReadWriteProcess openRead(const std::string& command);

/// The same with standard input and output as one stream, as popen() does in the read-write mode
/// that not every C library has.
[[nodiscard]] ReadWriteProcess openReadWrite(const std::string& command);

/// Closes the stream and waits for the command to end.
void closeProcess(const ReadWriteProcess& process);
