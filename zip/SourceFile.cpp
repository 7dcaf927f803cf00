#include "zip/SourceFile.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace zip {
base::Result<SourceFile> SourceFile::open(const PackageTree& tree, const Entry& file) {
    // Without O_NONBLOCK a pipe that has taken the file's place would keep us waiting.
    SourceFile source(tree, file,
                      base::FileDescriptor::openAt(tree.parent.get(), file.name.c_str(),
                                                   O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (!source.opened_.open())
        return errorOnListed("open", tree.pathOf(file), errno);
    if (auto unchanged = source.checkUnchanged(); !unchanged)
        return unchanged.error();
    return source;
}

base::Outcome SourceFile::read(std::uint8_t* to, std::size_t size, std::uint64_t offset) const {
    const auto count = base::readAt(opened_.get(), to, size, offset);
    if (!count)
        return base::systemError("read", tree_->pathOf(*file_), errno);
    if (*count != size)
        return changedMeanwhile(tree_->pathOf(*file_));
    return checkUnchanged();
}

base::Outcome SourceFile::checkUnchanged() const {
    struct stat status {};
    if (::fstat(opened_.get(), &status) != 0)
        return base::systemError("examine", tree_->pathOf(*file_), errno);
    if (FileState::of(status) != file_->state)
        return changedMeanwhile(tree_->pathOf(*file_));
    return {};
}

base::Result<std::string> readLinkTarget(const PackageTree& tree, const Entry& link) {
    // One byte more than expected shows a target that has grown.
    std::string target(link.contentSize() + 1, '\0');
    const ssize_t size =
        ::readlinkat(tree.parent.get(), link.name.c_str(), target.data(), target.size());
    if (size < 0)
        return errorOnListed("read the link", tree.pathOf(link), errno);
    if (static_cast<std::uint64_t>(size) != link.contentSize())
        return changedMeanwhile(tree.pathOf(link));
    target.pop_back();
    return target;
}

} // namespace zip
