#pragma once

#include "app/toolkit/ChoosePanel.h"

#include <QWidget>

/// What the system's own windows can do and Qt cannot. On other systems, and in a test
/// without a display, each does nothing and gives false. Main thread.

[[nodiscard]] bool setNativeWindowLevel(QWidget* window, int level);
/// Whether a sheet of the system's own lies on `window`.
[[nodiscard]] bool hasNativeSheet(const QWidget* window);
/// Shows the system's panel, in which folders and packages can be picked together, on `window`.
[[nodiscard]] bool beginNativeChoosePanel(const ChoosePanel::Settings& settings, QWidget* window,
                                          const ChoosePanel::Completion& completion);
