#include "core/platform/Spawn.h"

#include <spawn.h>

extern char** environ;

pid_t spawnShell(const std::string& command, int descriptor, std::initializer_list<int> targets) {
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0)
        return -1;
    int failure = 0;
    for (int target : targets)
        failure |= posix_spawn_file_actions_adddup2(&actions, descriptor, target);
    std::string shell = "sh";
    std::string option = "-c";
    std::string text = command;
    char* arguments[] = {shell.data(), option.data(), text.data(), nullptr};
    pid_t pid = -1;
    if (failure != 0 || posix_spawn(&pid, "/bin/sh", &actions, nullptr, arguments, environ) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}
