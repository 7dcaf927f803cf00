#include "base/Leftovers.h"

#include "base/Bytes.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <string_view>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace base {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = ".kelpmoray-";
constexpr std::string_view suffix = ".tmp";
constexpr std::size_t randomDigits = 32;

/// Some file systems lock only what is open for writing, which a file need not allow.
FileDescriptor openForLocking(const std::string& path) {
    constexpr int flags = O_NOFOLLOW | O_NONBLOCK;
    FileDescriptor opened = FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDWR | flags);
    return opened.open() ? std::move(opened)
                         : FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | flags);
}

std::string linkToDescriptor(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

} // namespace

bool isTemporaryName(std::string_view name) {
    if (name.size() != prefix.size() + randomDigits + suffix.size() || !name.starts_with(prefix) ||
        !name.ends_with(suffix))
        return false;
    return name.substr(prefix.size(), randomDigits).find_first_not_of("0123456789abcdef") ==
           std::string_view::npos;
}

std::string folderOf(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? "." : folder.string();
}

FileDescriptor openNameless([[maybe_unused]] const std::string& folder,
                            [[maybe_unused]] mode_t mode) {
#ifdef O_TMPFILE
    FileDescriptor file =
        FileDescriptor::openAt(AT_FDCWD, folder.c_str(), O_RDWR | O_TMPFILE, mode);
    // Locked before it has a name, so that no other run takes it for a leftover.
    if (file.open() && ::access(linkToDescriptor(file.get()).c_str(), F_OK) == 0 &&
        lockWithoutWaiting(file.get()))
        return file;
#endif
    return {};
}

bool giveName(int descriptor, const std::string& path) {
    const std::string from = linkToDescriptor(descriptor);
    return retried([&] {
               return ::linkat(AT_FDCWD, from.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW);
           }) == 0;
}

std::optional<std::string> temporaryName() {
    std::array<std::uint8_t, randomDigits / 2> random{};
    if (::getentropy(random.data(), random.size()) != 0)
        return std::nullopt;
    return std::string(prefix).append(hex(random)).append(suffix);
}

bool lockWithoutWaiting(int descriptor) {
    return retried([&] { return ::flock(descriptor, LOCK_EX | LOCK_NB); }) == 0;
}

bool isNameOf(int descriptor, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(descriptor, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool removeLeftover(const std::string& folder, const std::string& name, mode_t type) {
    if (!isTemporaryName(name))
        return false;
    const std::string path = folder + '/' + name;
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || (status.st_mode & S_IFMT) != type)
        return false;
    // A process that is alive holds the lock until the file has its final name.
    const FileDescriptor opened = openForLocking(path);
    return opened.open() && lockWithoutWaiting(opened.get()) && isNameOf(opened.get(), path) &&
           ::unlink(path.c_str()) == 0;
}

void removeLeftovers(const std::string& folder, mode_t type) {
    std::error_code code;
    for (fs::directory_iterator file(folder, code), end; !code && file != end; file.increment(code))
        removeLeftover(folder, file->path().filename().string(), type);
}

} // namespace base
