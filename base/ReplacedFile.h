#pragma once

#include "base/FileDescriptor.h"
#include "base/HiddenName.h"
#include "base/Result.h"

#include <optional>
#include <string>
#include <utility>

namespace base {

/// A file that takes the place of `target` when it is whole. Until then it has no name; if the file
/// system has no unnamed files, it has a hidden name beside the target. It goes away with this
/// object, and when one of the endingSignals ends the process. Several may be alive at once; one
/// thread at a time may use each.
class ReplacedFile {
public:
    /// Opens an empty file for reading and writing. It has the permissions of the file that is
    /// there, else those that new files have; a link is replaced, not followed. Also removes the
    /// files that killed runs have left in the same folder: those that have a name of our form and
    /// that no process has locked. Any thread.
    [[nodiscard]] static Result<ReplacedFile> createFor(const std::string& target);

    ReplacedFile(ReplacedFile&& other) noexcept = default;
    ReplacedFile& operator=(ReplacedFile&& other) = delete;

    [[nodiscard]] int descriptor() const { return opened_.get(); }

    /// Waits until the content is on the disk, then gives the file the target's name. On failure
    /// the target stays as it is. The last call for this object.
    [[nodiscard]] Outcome commit();

private:
    explicit ReplacedFile(std::string target) : target_(std::move(target)) {}

    [[nodiscard]] Outcome takePlace();

    std::string target_;
    FileDescriptor opened_;
    std::optional<HiddenName> name_; ///< if the file has one
};

} // namespace base
