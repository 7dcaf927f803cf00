#pragma once

#include "base/FileDescriptor.h"
#include "base/Result.h"

#include <string>

#include <sys/stat.h>

namespace base {

/// The file that takes the place of `target` once it is whole; until then it has no name, or on a
/// file system that knows no unnamed files a hidden name beside the target. It goes away with this
/// object, and when SIGINT, SIGTERM or SIGHUP ends the process. Several may be alive at once; each
/// is used by one thread at a time.
class ReplacedFile {
public:
    /// Opens an empty file for reading and writing. Also removes what killed runs have left in the
    /// same folder: only what has our kind of name and no process holds locked. Any thread.
    [[nodiscard]] static Result<ReplacedFile> createFor(const std::string& target);

    ReplacedFile(ReplacedFile&& other) noexcept = default;
    ReplacedFile& operator=(ReplacedFile&& other) = delete;
    ~ReplacedFile();

    [[nodiscard]] int descriptor() const { return opened_.get(); }

    /// Gives the file the permissions, the owner and the group in `status`; without a call it has
    /// those of a new file.
    [[nodiscard]] Outcome keepModeAndOwnerOf(const struct stat& status);

    /// Waits until the content is on the disk, then gives it the target's name. On failure what
    /// stands there stays as it is. Ends the use of this object.
    [[nodiscard]] Outcome commit();

private:
    explicit ReplacedFile(std::string target) : target_(std::move(target)) {}

    [[nodiscard]] bool openUnnamed();
    [[nodiscard]] Outcome openNamed();
    [[nodiscard]] std::string nameBeside() const;
    [[nodiscard]] Outcome takePlace();
    [[nodiscard]] Outcome giveName();
    void forgetName();

    std::string target_;
    /// Empty as long as the file has no name.
    std::string path_;
    FileDescriptor opened_;
};

} // namespace base
