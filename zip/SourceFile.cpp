#include "zip/SourceFile.h"

#include "zip/ExtendedAttributes.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace zip {

base::Result<SourceFile> SourceFile::open(OpenFolder& folder, const Entry& file) {
    const PackageTree& tree = folder.tree();
    const OpenFolder::Place place = folder.placeOf(file);
    // Without O_NONBLOCK a pipe that has taken the file's place would keep us waiting.
    SourceFile source(
        tree, file,
        base::FileDescriptor::openAt(place.folder, place.path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (!source.opened_.open())
        return errorOnListed("open", tree.pathOf(file), errno);
    return source;
}

base::Outcome SourceFile::read(std::uint8_t* to, std::size_t size, std::uint64_t offset) const {
    const auto count = base::readAt(opened_.get(), to, size, offset);
    const int readError = errno;
    // Only now: so it is known of both the file and what was read.
    struct stat status {};
    if (::fstat(opened_.get(), &status) != 0)
        return base::systemError("examine", tree_->pathOf(*file_), errno);
    if (FileState::of(status) != file_->state)
        return changedMeanwhile(tree_->pathOf(*file_));
    if (!count)
        return base::systemError("read", tree_->pathOf(*file_), readError);
    if (*count != size)
        return changedMeanwhile(tree_->pathOf(*file_));
    return {};
}

void SourceFile::addAttributesTo(std::set<std::string>& names) const {
    addExtendedAttributes(opened_.get(), names);
}

base::Result<std::string> readLinkTarget(OpenFolder& folder, const Entry& link) {
    const PackageTree& tree = folder.tree();
    const OpenFolder::Place place = folder.placeOf(link);
    // One byte more than expected shows a target that has grown.
    std::string target(link.contentSize() + 1, '\0');
    const ssize_t size = ::readlinkat(place.folder, place.path, target.data(), target.size());
    if (size < 0)
        return errorOnListed("read the link", tree.pathOf(link), errno);
    if (static_cast<std::uint64_t>(size) != link.contentSize())
        return changedMeanwhile(tree.pathOf(link));
    target.pop_back();
    return target;
}

} // namespace zip
