#pragma once

#include <initializer_list>
#include <string>

#include <sys/types.h>

/// Starts `/bin/sh -c command` with each of `targets` (descriptors of the child) connected to
/// `descriptor`; everything else is inherited, but that SIGPIPE is never ignored. Gives the child's
/// id, or -1 when it was not started.
[[nodiscard]] pid_t spawnShell(const std::string& command, int descriptor,
                               std::initializer_list<int> targets);
