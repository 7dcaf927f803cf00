#include "sign/files/FileTree.h"

#include "base/FileDescriptor.h"
#include "base/Printable.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sign {

namespace {

struct FolderClose {
    void operator()(DIR* folder) const { closedir(folder); }
};
struct MemoryFree {
    void operator()(char* memory) const { std::free(memory); }
};

/// Gives `take` the descriptor of the folder and each name in it but "." and "..".
template <typename Take>
base::Outcome forEachName(const std::string& folder, const Take& take) {
    const std::unique_ptr<DIR, FolderClose> opened(opendir(folder.c_str()));
    if (!opened)
        return base::systemError("read the folder", folder, errno);
    while (true) {
        errno = 0;
        const dirent* read = readdir(opened.get());
        if (!read)
            break;
        const std::string_view name = read->d_name;
        if (name == "." || name == "..")
            continue;
        if (auto taken = take(dirfd(opened.get()), read->d_name); !taken)
            return taken;
    }
    if (errno != 0)
        return base::systemError("read the folder", folder, errno);
    return {};
}

char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

} // namespace

bool FileEntry::isFolder() const {
    return S_ISDIR(mode);
}
bool FileEntry::isFile() const {
    return S_ISREG(mode);
}
bool FileEntry::isLink() const {
    return S_ISLNK(mode);
}
bool FileEntry::isPlainData() const {
    return isFile() && (mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0;
}

base::Result<std::vector<FileEntry>> entriesOf(const std::string& folder) {
    std::vector<FileEntry> entries;
    const auto take = [&](int descriptor, const char* name) -> base::Outcome {
        struct stat status {};
        if (fstatat(descriptor, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return base::systemError("look at", folder + "/" + name, errno);
        entries.push_back({name, status.st_mode, FileStamp::of(status)});
        return {};
    };
    if (auto read = forEachName(folder, take); !read)
        return read.error();
    std::sort(entries.begin(), entries.end(),
              [](const FileEntry& a, const FileEntry& b) { return a.name < b.name; });
    return entries;
}

base::Result<std::vector<std::string>> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    const auto take = [&names](int, const char* name) -> base::Outcome {
        names.emplace_back(name);
        return {};
    };
    if (auto read = forEachName(folder, take); !read)
        return read.error();
    return names;
}

base::Result<base::OwnedBytes> wholeFile(const std::string& path, Links links, std::uint64_t most,
                                         FileStamp* stamp) {
    const bool follows = links == Links::Follow;
    // Not to wait at a pipe, whose other end nobody may ever open.
    const auto file = base::FileDescriptor::openAt(
        AT_FDCWD, path.c_str(), O_RDONLY | O_NONBLOCK | (follows ? 0 : O_NOFOLLOW));
    struct stat status {};
    if (!file.open() && errno == ELOOP && !follows)
        return base::Error{base::ErrorKind::Conflict,
                           "\"" + base::printable(path) +
                               "\" is a link. Put the file itself in its place."};
    if (!file.open() || fstat(file.get(), &status) != 0)
        return base::systemError("read", path, errno);
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (!S_ISREG(status.st_mode) || size > most)
        return base::Error{base::ErrorKind::Unsupported,
                           "\"" + base::printable(path) + "\" is not a plain file of at most " +
                               std::to_string(most >> 20U) + " MB. " +
                               (follows ? "Give another file." : "Get it anew.")};
    if (stamp != nullptr)
        *stamp = FileStamp::of(status);
    base::OwnedBytes bytes(size);
    const auto got = base::readAt(file.get(), bytes.data(), bytes.size(), 0);
    if (!got)
        return base::systemError("read", path, errno);
    bytes.resize(*got);
    return bytes;
}

std::optional<std::string> linkTarget(const std::string& path) {
    std::string target(PATH_MAX, '\0');
    const ssize_t size = readlink(path.c_str(), target.data(), target.size());
    if (size < 0)
        return std::nullopt;
    target.resize(static_cast<std::size_t>(size));
    return target;
}

bool isFolder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isFile(const std::string& path) {
    const auto has = hasFile(path);
    return has && *has;
}

base::Result<bool> hasFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0)
        return S_ISREG(status.st_mode);
    if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP)
        return false;
    return base::systemError("look at", path, errno);
}

std::optional<std::string> realPath(const std::string& path) {
    const std::unique_ptr<char, MemoryFree> resolved(realpath(path.c_str(), nullptr));
    return resolved ? std::optional<std::string>(resolved.get()) : std::nullopt;
}

std::string withoutSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.remove_suffix(1);
    return std::string(path);
}

bool liesInOneOf(const std::set<std::string, std::less<>>& folders, std::string_view path) {
    for (std::size_t slash = path.rfind('/'); slash != std::string_view::npos;
         slash = path.rfind('/')) {
        path = path.substr(0, slash);
        if (folders.contains(path))
            return true;
    }
    return false;
}

bool sameWithoutCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lowered(a) == lowered(b); });
}

} // namespace sign
