#pragma once

#include <QDialog>

/// Whether a sheet lies on `window` and blocks it. Main thread.
[[nodiscard]] bool hasAttachedSheet(const QWidget* window);

/// Shows `sheet` on `parent`, which it blocks, and returns at once. The sheet deletes itself when
/// it is closed. Main thread.
void beginSheet(QDialog* sheet, QWidget* parent);
