#include "base/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

namespace base {

FileDescriptor::~FileDescriptor() {
    if (open())
        ::close(descriptor_);
}

FileDescriptor FileDescriptor::openAt(int at, const char* path, int flags, mode_t mode) {
    return FileDescriptor(retried([&] { return ::openat(at, path, flags | O_CLOEXEC, mode); }));
}

std::optional<std::size_t> readAt(int descriptor, std::uint8_t* to, std::size_t size,
                                  std::uint64_t offset) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count =
            ::pread(descriptor, to + done, size - done, static_cast<off_t>(offset + done));
        if (count == 0)
            break;
        if (count > 0)
            done += static_cast<std::size_t>(count);
        else if (errno != EINTR)
            return std::nullopt;
    }
    return done;
}

bool writeAt(int descriptor, Bytes bytes, std::uint64_t offset) {
    while (!bytes.empty()) {
        const ssize_t count =
            ::pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
            offset += static_cast<std::uint64_t>(count);
        }
    }
    return true;
}

bool truncateTo(int descriptor, std::uint64_t size) {
    return retried([&] { return ::ftruncate(descriptor, static_cast<off_t>(size)); }) == 0;
}

void startWriteBack([[maybe_unused]] int descriptor, [[maybe_unused]] std::uint64_t offset,
                    [[maybe_unused]] std::uint64_t size) {
#ifdef __linux__
    (void)::sync_file_range(descriptor, static_cast<off_t>(offset), static_cast<off_t>(size),
                            SYNC_FILE_RANGE_WRITE);
#endif
}

} // namespace base
