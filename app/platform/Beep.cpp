#include "app/platform/Beep.h"

#include "app/platform/MainQueue.h"

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
