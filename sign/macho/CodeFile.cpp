#include "sign/macho/CodeFile.h"

#include "base/ByteReader.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>

namespace sign {
namespace {

constexpr std::uint64_t mostCommands = 16U << 20U;
constexpr std::uint32_t mostAlignment = 30;

} // namespace

base::Result<CodeFile> CodeFile::open(const std::string& path) {
    CodeFile file;
    file.path_ = path;
    // Else the open of a pipe would wait for a writer.
    file.file_ = base::FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.file_.open() || ::fstat(file.file_.get(), &status) != 0)
        return base::systemError("open", path, errno);
    if (!S_ISREG(status.st_mode))
        return base::Error{base::ErrorKind::Unsupported, path + " is not a file. Check the path."};
    file.stamp_ = FileStamp::of(status);
    if (auto read = file.readSlices(); !read)
        return read.error();
    return file;
}

base::Outcome CodeFile::readSlices() {
    auto start = read({0, std::min<std::uint64_t>(size(), 32 * (mostSlices + 1))});
    if (!start)
        return start.error();
    base::ByteReader reader(*start);
    const auto magic = reader.takeBig<std::uint32_t>();
    const auto count = reader.takeBig<std::uint32_t>();
    const bool isUniversal = magic == universalMagic || magic == universalMagic64;
    if (!reader.failed() && isUniversal && count <= mostSlices) {
        isUniversal_ = true;
        isUniversal64_ = magic == universalMagic64;
        return readUniversal(*start);
    }
    return startsLikeMachO(*start) ? addSlice({0, size()}) : base::Outcome();
}

base::Outcome CodeFile::readUniversal(base::Bytes start) {
    base::ByteReader reader(start);
    (void)reader.take(4);
    const auto count = reader.takeBig<std::uint32_t>();
    if (count == 0)
        return damagedMachO(path_, "it has no architecture");
    std::vector<FileRange> ranges;
    std::vector<std::array<std::uint32_t, 2>> kinds;
    for (std::uint32_t index = 0; index < count; ++index) {
        kinds.push_back({reader.takeBig<std::uint32_t>(), 0});
        kinds.back()[1] = reader.takeBig<std::uint32_t>();
        FileRange range;
        range.offset =
            isUniversal64_ ? reader.takeBig<std::uint64_t>() : reader.takeBig<std::uint32_t>();
        range.size =
            isUniversal64_ ? reader.takeBig<std::uint64_t>() : reader.takeBig<std::uint32_t>();
        alignments_.push_back(reader.takeBig<std::uint32_t>());
        if (isUniversal64_)
            (void)reader.take(4);
        ranges.push_back(range);
    }
    if (reader.failed())
        return damagedMachO(path_, "the table of its architectures is cut short");
    for (std::size_t index = 0; index < ranges.size(); ++index) {
        if (auto added = addSlice(ranges[index]); !added)
            return added;
        MachSlice& slice = slices_.back();
        slice.listedSubtype = kinds[index][1];
        if (kinds[index][0] != slice.cpuType || (kinds[index][1] & 0xFFFFFFU) != slice.cpuSubtype)
            return damagedMachO(path_,
                                "the table of its architectures names another than a slice is");
    }
    std::ranges::sort(ranges, {}, &FileRange::offset);
    for (std::size_t index = 1; index < ranges.size(); ++index)
        if (ranges[index].offset < ranges[index - 1].offset + ranges[index - 1].size)
            return damagedMachO(path_, "two of its architectures overlap");
    return {};
}

base::Outcome CodeFile::addSlice(FileRange range) {
    if (range.size > size() || range.offset > size() - range.size)
        return damagedMachO(path_, "an architecture reaches past the end");
    auto start = read({range.offset, std::min<std::uint64_t>(range.size, 32)});
    if (!start)
        return start.error();
    auto commandsSize = commandsSizeOf(*start, path_);
    if (!commandsSize)
        return isUniversal_ || start->size() >= leastHeaderSize
                   ? commandsSize.error()
                   : damagedMachO(path_, "it ends inside of its header");
    if (*commandsSize > std::min(range.size, mostCommands))
        return damagedMachO(path_, "its load commands reach past the end");
    auto commands = read({range.offset, *commandsSize});
    if (!commands)
        return commands.error();
    auto slice = readMachSlice(std::move(*commands), range.offset, range.size, path_);
    if (!slice)
        return slice.error();
    slices_.push_back(std::move(*slice));
    return {};
}

std::size_t CodeFile::nativeSlice() const {
    for (std::size_t index = 0; index < slices_.size(); ++index)
        if (slices_[index].architecture() == "arm64")
            return index;
    return 0;
}

base::Outcome CodeFile::read(std::uint8_t* to, FileRange range) const {
    const auto count = base::readAt(file_.get(), to, range.size, range.offset);
    if (!count)
        return base::systemError("read", path_, errno);
    if (*count != range.size)
        return changedWhileRead(path_);
    return {};
}

base::Result<base::OwnedBytes> CodeFile::read(FileRange range) const {
    base::OwnedBytes bytes(range.size);
    if (auto done = read(bytes.data(), range); !done)
        return done.error();
    return bytes;
}

base::Outcome CodeFile::checkStructure() const {
    for (const MachSlice& slice : slices_)
        if (slice.structureEnd != slice.size)
            return damagedMachO(path_, "there is data behind its last segment");
    if (auto aligned = checkAlignments(); !aligned)
        return aligned;
    return checkNothingElse();
}

std::vector<std::size_t> CodeFile::slicesByOffset() const {
    std::vector<std::size_t> order(slices_.size());
    for (std::size_t index = 0; index < order.size(); ++index)
        order[index] = index;
    std::ranges::sort(order, {}, [this](std::size_t index) { return slices_[index].offset; });
    return order;
}

base::Outcome CodeFile::checkAlignments() const {
    std::optional<std::uint64_t> end;
    for (const std::size_t index : isUniversal_ ? slicesByOffset() : std::vector<std::size_t>()) {
        const MachSlice& slice = slices_[index];
        if (alignments_[index] > mostAlignment ||
            slice.offset % (std::uint64_t{1} << alignments_[index]) != 0)
            return damagedMachO(path_,
                                "an architecture does not lie at a multiple of its alignment");
        if (end && slice.offset - *end >= std::uint64_t{1} << alignments_[index])
            return damagedMachO(path_, "there is room for data between its architectures");
        end = slice.offset + slice.size;
    }
    return {};
}

base::Outcome CodeFile::checkNothingElse() const {
    if (!isUniversal_)
        return {};
    std::uint64_t end = 8 + slices_.size() * (isUniversal64_ ? 32 : 20);
    for (const std::size_t index : slicesByOffset()) {
        const MachSlice& slice = slices_[index];
        if (slice.type != slices_.front().type)
            return damagedMachO(path_, "its architectures are of different file types");
        if (slice.offset < end)
            return damagedMachO(path_, "an architecture overlaps the table of architectures");
        const std::uint64_t gap = slice.offset - end;
        constexpr std::uint64_t piece = 1U << 20U;
        for (std::uint64_t at = 0; at < gap; at += piece) {
            auto bytes = read({end + at, std::min(piece, gap - at)});
            if (!bytes)
                return bytes.error();
            if (std::ranges::any_of(*bytes, [](std::uint8_t byte) { return byte != 0; }))
                return damagedMachO(path_, "there is data between its architectures");
        }
        end = slice.offset + slice.size;
    }
    if (end != size())
        return damagedMachO(path_, "there is data behind its last architecture");
    return {};
}

} // namespace sign
