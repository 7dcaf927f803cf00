#include "zip/RemovalOnSignal.h"

#include <array>
#include <csignal>

#include <unistd.h>

namespace zip {
namespace {

// A handler must not touch what may be half changed: the path is written while signals are held
// back.
std::array<char, 4096> pathToRemove{};

void removeAndEnd(int signal) {
    ::unlink(pathToRemove.data());
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

bool removeOnSignal(const std::string& path) {
    if (path.size() >= pathToRemove.size())
        return false;
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ending, signal);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &ending, &before);
    path.copy(pathToRemove.data(), path.size());
    pathToRemove.at(path.size()) = '\0';
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = removeAndEnd;
        action.sa_mask = ending;
        sigaction(signal, &action, nullptr);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return true;
}

} // namespace zip
