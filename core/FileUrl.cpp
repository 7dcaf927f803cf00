#include "core/FileUrl.h"

#include "core/Path.h"

FileUrl FileUrl::fileURLWithPath(std::string_view path) {
    const std::string absolute = absolutePath(path);
    return {absolute, path.ends_with('/') || isDirectory(absolute)};
}

FileUrl::FileUrl(std::string_view path, bool isFolder) : path_(path), isFolder_(isFolder) {
    while (path_.size() > 1 && path_.ends_with('/'))
        path_.pop_back();
}

FileUrl FileUrl::deletingLastPathComponent() const {
    return {::deletingLastPathComponent(path_), true};
}

std::string FileUrl::absoluteString() const {
    constexpr std::string_view unreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                            "0123456789-._~/!$&'()*+,;=:@";
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text = "file://";
    for (char c : path_) {
        if (unreserved.find(c) != std::string_view::npos) {
            text += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            text += {'%', digits[byte >> 4U], digits[byte & 15U]};
        }
    }
    if (isFolder_ && path_ != "/")
        text += '/';
    return text;
}

void describe(BoundedText& out, const FileUrl& url) {
    out.append(url.absoluteString());
}

void describeElement(BoundedText& out, const FileUrl& url) {
    describeQuoted(out, url.absoluteString());
}
