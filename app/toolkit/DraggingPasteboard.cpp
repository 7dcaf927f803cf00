#include "app/toolkit/DraggingPasteboard.h"

#include "app/toolkit/FileUris.h"

#include <QMimeData>
#include <QUrl>

DraggingPasteboard::DraggingPasteboard(const QMimeData& data) {
    std::vector<std::string> paths;
    if (data.hasUrls()) {
        urls_.emplace();
        for (const QUrl& url : data.urls()) {
            if (const auto path = pathOfUri(url)) {
                paths.push_back(*path);
                urls_->emplace_back(FileUrl::fileURLWithPath(paths.back()));
            } else {
                urls_->emplace_back(OtherItem{url.toString().toStdString()});
            }
        }
    } else if (data.hasText()) {
        for (const QString& line : data.text().split('\n', Qt::SkipEmptyParts)) {
            if (line.startsWith('/'))
                paths.push_back(line.trimmed().toStdString());
        }
    }
    if (!paths.empty())
        filenames_ = std::move(paths);
}

std::vector<std::string> DraggingPasteboard::types() const {
    std::vector<std::string> types;
    if (urls_)
        types.emplace_back("NSURLPboardType");
    if (filenames_)
        types.emplace_back("NSFilenamesPboardType");
    return types;
}
