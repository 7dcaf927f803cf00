#include "app/toolkit/QtDescription.h"

#include <QMetaObject>

namespace {

std::string objectDescription(const QObject* object) {
    if (object == nullptr)
        return "(null)";
    return QStringLiteral("<%1: 0x%2>")
        .arg(QLatin1String(object->metaObject()->className()))
        .arg(reinterpret_cast<quintptr>(object), 0, 16)
        .toStdString();
}

} // namespace

void describe(BoundedText& out, const QString& text) {
    out.append(text.isNull() ? std::string("(null)") : text.toStdString());
}

void describe(BoundedText& out, const QRect& rect) {
    out.append(QStringLiteral("{{%1, %2}, {%3, %4}}")
                   .arg(rect.x())
                   .arg(rect.y())
                   .arg(rect.width())
                   .arg(rect.height())
                   .toStdString());
}

void describeObject(BoundedText& out, const QObject* object) {
    out.append(objectDescription(object));
}

void describeObjectElement(BoundedText& out, const QObject* object) {
    describeQuoted(out, objectDescription(object));
}
