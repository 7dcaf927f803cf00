#include "app/toolkit/Beep.h"

#include "app/toolkit/Queues.h"

#include <QApplication>

#include <atomic>

namespace {
std::atomic<std::size_t> beeps = 0;
} // namespace

void playBeep() {
    ++beeps;
    MainQueue::async([] { QApplication::beep(); });
}

std::size_t beepsPlayed() {
    return beeps;
}
