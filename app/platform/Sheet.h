#pragma once

#include <QDialog>

/// The dialog that lies on `window` and blocks it; null if there is none. Main thread.
[[nodiscard]] QDialog* attachedSheet(const QWidget* window);

/// Shows `sheet` on `parent`, which it blocks, and returns at once. The sheet deletes itself when
/// it is closed. Main thread.
void beginSheet(QDialog* sheet, QWidget* parent);
