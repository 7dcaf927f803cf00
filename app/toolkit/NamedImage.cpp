#include "app/toolkit/NamedImage.h"

#include "core/MainBundle.h"

namespace {

/// Empty if it is not there.
QString pathOfImage(const QString& name) {
    const auto path = MainBundle::ofThisProcess().pathForResource(name.toStdString(), "");
    return QString::fromStdString(path.value_or(""));
}

} // namespace

QPixmap imageNamed(const QString& name) {
    return QPixmap(pathOfImage(name));
}

QIcon applicationIcon() {
    QIcon icon;
    for (const int size : {16, 32, 64, 128})
        icon.addFile(pathOfImage(QStringLiteral("icons/kelpmoray-%1.png").arg(size)),
                     QSize(size, size));
    return icon;
}
