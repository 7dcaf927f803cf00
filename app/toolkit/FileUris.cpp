#include "app/toolkit/FileUris.h"

#include <QByteArray>

std::optional<std::string> pathOfUri(const QUrl& uri) {
    if (!uri.isLocalFile())
        return std::nullopt;
    return QByteArray::fromPercentEncoding(uri.path(QUrl::FullyEncoded).toLatin1()).toStdString();
}

QString uriOfPath(const std::string& path) {
    return "file://" + QString::fromLatin1(QByteArray::fromStdString(path).toPercentEncoding("/"));
}
