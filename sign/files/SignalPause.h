#pragma once

#include "base/HiddenName.h"

#include <csignal>

namespace sign {

/// Holds back the base::endingSignals from this thread, and from those that it starts.
class SignalPause {
public:
    SignalPause() {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int signal : base::endingSignals)
            sigaddset(&ending, signal);
        pthread_sigmask(SIG_BLOCK, &ending, &before_);
    }
    ~SignalPause() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalPause(const SignalPause&) = delete;
    SignalPause& operator=(const SignalPause&) = delete;

private:
    sigset_t before_{};
};

} // namespace sign
