#include "core/platform/Spawn.h"

#include <csignal>

#include <spawn.h>

extern char** environ;

pid_t spawnShell(const std::string& command, int descriptor, std::initializer_list<int> targets) {
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0)
        return -1;
    // Whoever started us may ignore SIGPIPE, and so may we: a command that never stops writing has
    // to end by it once nobody reads.
    sigset_t restored;
    sigemptyset(&restored);
    sigaddset(&restored, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &restored);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    int failure = 0;
    for (int target : targets)
        failure |= posix_spawn_file_actions_adddup2(&actions, descriptor, target);
    std::string shell = "sh";
    std::string option = "-c";
    std::string text = command;
    char* arguments[] = {shell.data(), option.data(), text.data(), nullptr};
    pid_t pid = -1;
    if (failure != 0 ||
        posix_spawn(&pid, "/bin/sh", &actions, &attributes, arguments, environ) != 0)
        pid = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}
