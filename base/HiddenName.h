#pragma once

#include "base/FileDescriptor.h"

#include <array>
#include <csignal>
#include <optional>
#include <string>
#include <utility>

namespace base {

/// What ends a process from outside, if it does not say otherwise; but for SIGKILL.
inline constexpr std::array endingSignals{SIGINT,  SIGTERM, SIGHUP,  SIGQUIT,   SIGALRM,
                                          SIGUSR1, SIGUSR2, SIGXCPU, SIGVTALRM, SIGPROF};

/// The name of a file that is written aside (base/Leftovers.h), for as long as it has no other. The
/// file goes away with this object, and when one of the endingSignals ends the process. Several may
/// be alive at once; one thread at a time may use each.
class HiddenName {
public:
    /// A name in `folder` for a file that is still to be made; absent, with errno set, if the
    /// system has no random bytes. Any thread.
    [[nodiscard]] static std::optional<HiddenName> in(const std::string& folder);

    HiddenName(HiddenName&& other) noexcept : path_(std::exchange(other.path_, {})) {}
    HiddenName& operator=(HiddenName&& other) = delete;
    ~HiddenName();

    [[nodiscard]] const std::string& path() const { return path_; }
    /// The file has another name now, or was never made.
    void release();

private:
    explicit HiddenName(std::string path) : path_(std::move(path)) {}

    std::string path_; ///< empty if released
};

/// From now on the endingSignals remove the file, or the folder if it is empty, before they end the
/// process. Any thread.
void removeAtEnd(const std::string& path);
/// They do not any more.
void keepAtEnd(const std::string& path);

struct HiddenFile {
    HiddenName name;
    FileDescriptor opened; ///< for reading and writing; locked
};

/// A new, empty file in `folder`; absent, with errno set, if there can be none. Any thread.
[[nodiscard]] std::optional<HiddenFile> createHidden(const std::string& folder, mode_t mode);

/// Names a file of openNameless(), which is in the same file system as `folder`; absent, with errno
/// set, on failure. Any thread.
[[nodiscard]] std::optional<HiddenName> giveHiddenName(int descriptor, const std::string& folder);

/// Lets two files have each other's names, in one step; false, with errno set, also if one is not
/// there (ENOENT) or if the file system cannot (EINVAL, ENOSYS or ENOTSUP). Any thread.
[[nodiscard]] bool swapNames(const std::string& one, const std::string& other);

} // namespace base
