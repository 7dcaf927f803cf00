#pragma once

#include "base/FileDescriptor.h"
#include "base/Result.h"

#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace sign {

/// A new version of a file of a package: one of several that are written side by side and then
/// take their places together, with the mode and owner of the old file. Until then it has no name
/// if the system allows that, so that nothing is left of it when the process ends; else a hidden
/// name beside the file (base/Leftovers.h). Many at once, each on one thread at a time. It
/// removes no leftovers, unlike base::ReplacedFile: the walk over the package removes them.
class AsideFile {
public:
    /// For the file `path`, with its mode and owner. What is not there yet, or is a link, which is
    /// replaced and not followed, gets mode 0644.
    [[nodiscard]] static base::Result<AsideFile> createFor(const std::string& path);

    AsideFile(AsideFile&& other) noexcept
        : path_(std::move(other.path_)), temporary_(std::move(other.temporary_)),
          isNamed_(std::exchange(other.isNamed_, false)), file_(std::move(other.file_)) {}
    AsideFile& operator=(AsideFile&& other) = delete;
    ~AsideFile();

    /// The file that it is a new version of.
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] base::Outcome write(base::Bytes bytes, std::uint64_t offset) const;
    [[nodiscard]] base::Outcome setSize(std::uint64_t size) const;
    /// Lets the system begin to bring it to the disk.
    void startWriteBack() const;
    /// Waits until it is on the disk.
    [[nodiscard]] base::Outcome sync() const;
    /// Gives it the hidden name and closes it: of very many files not all can be open.
    [[nodiscard]] base::Outcome close();
    /// What is written so far, for reading alone. Any thread.
    [[nodiscard]] base::Result<base::FileDescriptor> openToRead() const;

    /// Gives all files, which are synced, their names, one right after the other in that order;
    /// signals that end the process wait meanwhile.
    [[nodiscard]] static base::Outcome commit(const std::vector<AsideFile*>& files);

private:
    AsideFile(std::string path, std::string temporary)
        : path_(std::move(path)), temporary_(std::move(temporary)) {}

    [[nodiscard]] base::Outcome takeOver(const struct stat& old) const;
    [[nodiscard]] base::Outcome giveTemporaryName();

    std::string path_;
    std::string temporary_;
    bool isNamed_ = false;
    base::FileDescriptor file_;
};

} // namespace sign
