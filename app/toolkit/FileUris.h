#pragma once

#include <QString>
#include <QUrl>

#include <optional>
#include <string>

/// The path that a file URI stands for, byte by byte: a name need not be UTF-8. None for other
/// URIs.
[[nodiscard]] std::optional<std::string> pathOfUri(const QUrl& uri);

/// The file URI of an absolute path.
[[nodiscard]] QString uriOfPath(const std::string& path);
