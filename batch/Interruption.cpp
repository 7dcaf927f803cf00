#include "batch/Interruption.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <ctime>

#include <pthread.h>

namespace {

std::atomic<std::int64_t> cameAt = 0; // in milliseconds; 0 if none has come
pthread_t reader{};

std::int64_t milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1'000'000 + 1;
}

void note(int signal) {
    constexpr std::int64_t atOnce = 200;
    const std::int64_t now = milliseconds();
    std::int64_t before = 0;
    if (cameAt.compare_exchange_strong(before, now)) {
        // Handed on to the reader, so that its read() ends.
        if (pthread_equal(pthread_self(), reader) == 0)
            pthread_kill(reader, signal);
    } else if (now - before >= atOnce) { // timeout(1) asks twice for one end
        std::signal(signal, SIG_DFL);
        raise(signal);
    }
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
    return cameAt != 0;
}
