#pragma once

#include "base/Bytes.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include <sys/types.h>

namespace base {

/// Owns one open file descriptor. Closing reports no error, so a writer syncs first.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor();

    /// Opens `path` relative to the folder `at` (or AT_FDCWD); child processes do not get it. If it
    /// fails, the result is not open() and errno tells why.
    [[nodiscard]] static FileDescriptor openAt(int at, const char* path, int flags,
                                               mode_t mode = 0);

    [[nodiscard]] bool open() const { return descriptor_ >= 0; }
    [[nodiscard]] int get() const { return descriptor_; }
    /// Gives up the ownership.
    [[nodiscard]] int release() { return std::exchange(descriptor_, -1); }

private:
    int descriptor_ = -1;
};

/// Makes the system call again as long as a signal interrupts it.
template <typename Call>
[[nodiscard]] auto retried(const Call& call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/// Reads `size` bytes at `offset`, fewer only if the file ends before. Absent on failure, with
/// errno set.
[[nodiscard]] std::optional<std::size_t> readAt(int descriptor, std::uint8_t* to, std::size_t size,
                                                std::uint64_t offset);

/// Writes all bytes at `offset`; false on failure, with errno set.
[[nodiscard]] bool writeAt(int descriptor, Bytes bytes, std::uint64_t offset);

/// Cuts the file after `size` bytes; false on failure, with errno set.
[[nodiscard]] bool truncateTo(int descriptor, std::uint64_t size);

/// Lets the system start to write the bytes to the disk, so that a later sync takes less time. Does
/// nothing on a system that has no such call.
void startWriteBack(int descriptor, std::uint64_t offset, std::uint64_t size);

} // namespace base
