#pragma once

#include "base/FileDescriptor.h"
#include "base/Result.h"

#include <string>

namespace base {

/// The file that becomes `output` once it is whole: until then it is a hidden one beside it, named
/// after this process, which goes away with this object and when SIGINT, SIGTERM or SIGHUP ends the
/// process. One at a time in a process.
class ReplacedFile {
public:
    /// Also removes those in the same folder whose process has ended without doing so.
    [[nodiscard]] static Result<ReplacedFile> createFor(const std::string& output);

    ReplacedFile(ReplacedFile&& other) noexcept = default;
    ReplacedFile& operator=(ReplacedFile&& other) = delete;
    ~ReplacedFile();

    [[nodiscard]] int descriptor() const { return opened_.get(); }
    [[nodiscard]] const std::string& path() const { return path_; }

    /// Waits until it is on the disk, then lets it take the output's place.
    [[nodiscard]] Outcome commit();

private:
    ReplacedFile(std::string output, std::string path)
        : output_(std::move(output)), path_(std::move(path)) {}

    std::string output_;
    std::string path_;
    FileDescriptor opened_;
};

} // namespace base
