#pragma once

#include "base/FileDescriptor.h"
#include "base/HiddenName.h"
#include "base/Result.h"

#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace sign {

/// A new version of a file of a package: one of several that are written side by side and then
/// take their places together, with the mode and owner of the old file. Until then it has no name
/// if the system allows that, so that nothing is left of it when the process ends; else a hidden
/// one. Many at once, each on one thread at a time. It removes no leftovers of killed runs, unlike
/// base::ReplacedFile: of a package the walk over it does.
class AsideFile {
public:
    /// For the file `path`, with its mode and owner. What is not there yet, or is a link, which is
    /// replaced and not followed, may be read and written by whom the folder around it lets in, and
    /// gets the owner of that if the system allows it. It is written in `folder`, of the same file
    /// system; if that is empty, beside the old file.
    [[nodiscard]] static base::Result<AsideFile> createFor(const std::string& path,
                                                           const std::string& folder = {});

    /// The file that it is a new version of.
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] base::Outcome write(base::Bytes bytes, std::uint64_t offset) const;
    [[nodiscard]] base::Outcome setSize(std::uint64_t size) const;
    /// Lets the system begin to bring it to the disk.
    void startWriteBack() const;
    /// Waits until it is on the disk, after the last write.
    [[nodiscard]] base::Outcome sync() const;
    /// Gives it the hidden name and closes it: of very many files not all can be open.
    [[nodiscard]] base::Outcome close();
    /// What is written so far, for reading alone. Any thread.
    [[nodiscard]] base::Result<base::FileDescriptor> openToRead() const;

    /// Lets all files, which are synced, take their places, one right after the other in that
    /// order, and takes away what is at the paths `removed`. On failure all is as it was before.
    /// Signals that end the process wait meanwhile.
    [[nodiscard]] static base::Outcome commit(const std::vector<AsideFile*>& files,
                                              const std::vector<std::string>& removed);

private:
    AsideFile(std::string path, std::string folder)
        : path_(std::move(path)), folder_(std::move(folder)) {}

    [[nodiscard]] base::Outcome takeOver(const struct stat& old);
    void fitIn();
    [[nodiscard]] base::Outcome giveHiddenName();

    std::string path_;
    std::string folder_;
    mode_t mode_ = 0644;
    base::FileDescriptor file_;
    std::optional<base::HiddenName> name_; ///< if it has one
};

} // namespace sign
