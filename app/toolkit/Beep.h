#pragma once

#include <cstddef>

/// Sounds the system's alert. Any thread.
void playBeep();

/// How often it was asked for since the start.
[[nodiscard]] std::size_t beepsPlayed();
