#pragma once

#include <QWidget>

/// The level of status windows, in the numbers of the original platform.
inline constexpr int statusWindowLevel = 25;

/// Keeps `window` above those of lower level: for any level over 0 above ordinary windows, as far
/// as the desktop allows. Without a window nothing happens. Main thread.
void setWindowLevel(QWidget* window, int level);

/// Brings `window`, or the sheet on it, to the front, as far as the desktop allows. Main thread.
void activateIgnoringOtherApps(QWidget* window);
