#pragma once

#include <QWidget>

#include <optional>
#include <string>

/// Where a window is, and its size, as a text that a person can read: "{{120, 80}, {520, 400}}".
/// That of a maximized window is the one it had before. Main thread.
[[nodiscard]] std::string windowFrameText(const QWidget& window);

/// Gives the window that frame, before it is shown. Its place is left to the desktop if no screen
/// shows the title bar there any more; a text that is no frame changes nothing. Main thread.
void setWindowFrame(QWidget& window, const std::string& text);
