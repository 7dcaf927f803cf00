#pragma once

#include <QDialog>

/// The sheet on `window`, which it blocks; null if there is none of ours. Main thread.
[[nodiscard]] QDialog* attachedSheet(const QWidget* window);

/// Whether a sheet, the system's own included, lies on `window` and blocks it. Main thread.
[[nodiscard]] bool hasAttachedSheet(const QWidget* window);

/// Shows `sheet` on `parent`, which it blocks, and returns at once. The sheet deletes itself when
/// it is closed. Main thread.
void beginSheet(QDialog* sheet, QWidget* parent);
