#pragma once

#include <QIcon>
#include <QPixmap>
#include <QString>

/// The image file of that name among the application's resources; null if it is not there.
[[nodiscard]] QPixmap imageNamed(const QString& name);

/// The application's icon in the sizes that windows show, from the resources.
[[nodiscard]] QIcon applicationIcon();
