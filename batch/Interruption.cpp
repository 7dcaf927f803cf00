#include "batch/Interruption.h"

#include <atomic>
#include <csignal>

#include <pthread.h>

namespace {

std::atomic<bool> hasCome = false;
pthread_t reader{};

void note(int signal) {
    // A signal that another thread takes is handed on once, so that the reader's read() ends.
    if (!hasCome.exchange(true) && pthread_equal(pthread_self(), reader) == 0)
        pthread_kill(reader, signal);
    else
        std::signal(signal, SIG_DFL);
}

} // namespace

void Interruption::watch() {
    reader = pthread_self();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler == SIG_IGN)
            continue;
        struct sigaction action {};
        action.sa_handler = note;
        sigemptyset(&action.sa_mask);
        sigaction(signal, &action, nullptr);
    }
}

bool Interruption::came() {
    return hasCome;
}
