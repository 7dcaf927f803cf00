#include "zip/ArchiveReader.h"

#include "base/ByteReader.h"
#include "base/FileDescriptor.h"
#include "base/Utf8.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>

#include <sys/stat.h>

namespace zip {
namespace {

using base::ByteReader;

constexpr std::size_t endRecordSize = 22;
constexpr std::size_t zip64LocatorSize = 20;
constexpr std::size_t zip64RecordSize = 56;
constexpr std::size_t localHeaderSize = 30;
constexpr std::size_t centralHeaderSize = 46;
constexpr std::uint16_t madeByUnix = 3 << 8 | 45;
constexpr std::uint16_t nameIsUtf8 = 1 << 11;

/// Completes the entry from its extra fields; false if they are malformed, lack the time stamp or
/// need another version than the entry says.
bool takeExtraFields(base::Bytes bytes, ArchivedEntry& entry) {
    constexpr std::uint8_t onlyModified = 1;
    bool hasTimestamp = false;
    std::uint16_t versionNeeded = 20;
    ByteReader extras(bytes);
    while (!extras.empty()) {
        const std::uint16_t tag = extras.takeLittle<std::uint16_t>();
        ByteReader extra(extras.take(extras.takeLittle<std::uint16_t>()));
        if (tag == 0x0001) {
            versionNeeded = 45;
            for (std::uint64_t* field :
                 {&entry.size, &entry.compressedSize, &entry.localHeaderOffset})
                if (*field == 0xFFFFFFFF)
                    *field = extra.takeLittle<std::uint64_t>();
        } else if (tag == 0x5455) {
            hasTimestamp = extra.takeLittle<std::uint8_t>() == onlyModified;
            entry.modified = extra.takeLittle<std::uint32_t>();
        }
        if (extra.failed() || !extra.empty())
            return false;
    }
    return hasTimestamp && !extras.failed() && entry.versionNeeded == versionNeeded;
}

/// Takes the fields that both headers of an entry have, in the same order.
void takeSharedFields(ByteReader& fields, ArchivedEntry& entry) {
    entry.versionNeeded = fields.takeLittle<std::uint16_t>();
    entry.flags = fields.takeLittle<std::uint16_t>();
    entry.method = fields.takeLittle<std::uint16_t>();
    entry.dosModified = fields.takeLittle<std::uint32_t>();
    entry.crc32 = fields.takeLittle<std::uint32_t>();
    entry.compressedSize = fields.takeLittle<std::uint32_t>();
    entry.size = fields.takeLittle<std::uint32_t>();
}

std::optional<ArchivedEntry> takeCentralDirectoryHeader(ByteReader& fields) {
    ArchivedEntry entry;
    if (fields.takeLittle<std::uint32_t>() != 0x02014b50 ||
        fields.takeLittle<std::uint16_t>() != madeByUnix)
        return std::nullopt;
    takeSharedFields(fields, entry);
    const std::size_t nameSize = fields.takeLittle<std::uint16_t>();
    const std::size_t extraSize = fields.takeLittle<std::uint16_t>();
    const std::size_t commentSize = fields.takeLittle<std::uint16_t>();
    const std::uint16_t disk = fields.takeLittle<std::uint16_t>();
    const std::uint16_t internalAttributes = fields.takeLittle<std::uint16_t>();
    const std::uint16_t dosAttributes = fields.takeLittle<std::uint16_t>();
    entry.mode = fields.takeLittle<std::uint16_t>();
    entry.localHeaderOffset = fields.takeLittle<std::uint32_t>();
    entry.name = base::textOf(fields.take(nameSize));
    const base::Bytes extra = fields.take(extraSize);
    const std::uint16_t dosExpected = entry.name.ends_with('/') ? 0x10 : 0;
    // Any other flag says that the data is encrypted or stands elsewhere.
    const std::uint16_t flagsExpected = base::isValidUtf8(entry.name) ? nameIsUtf8 : 0;
    if (fields.failed() || entry.flags != flagsExpected || commentSize != 0 || disk != 0 ||
        internalAttributes != 0 || dosAttributes != dosExpected || !takeExtraFields(extra, entry))
        return std::nullopt;
    return entry;
}

bool saysTheSame(const ArchivedEntry& a, const ArchivedEntry& b) {
    return a.name == b.name && a.method == b.method && a.flags == b.flags && a.crc32 == b.crc32 &&
           a.dosModified == b.dosModified && a.modified == b.modified &&
           a.compressedSize == b.compressedSize && a.size == b.size;
}

bool takeEndRecord(base::Bytes bytes, CentralDirectory& directory) {
    ByteReader fields(bytes);
    const bool isSigned = fields.takeLittle<std::uint32_t>() == 0x06054b50;
    const bool isOneDisk = fields.takeLittle<std::uint32_t>() == 0;
    const std::uint16_t countOnDisk = fields.takeLittle<std::uint16_t>();
    directory.count = fields.takeLittle<std::uint16_t>();
    directory.size = fields.takeLittle<std::uint32_t>();
    directory.offset = fields.takeLittle<std::uint32_t>();
    const bool hasComment = fields.takeLittle<std::uint16_t>() != 0;
    return isSigned && isOneDisk && countOnDisk == directory.count && !hasComment;
}

bool isZip64Locator(base::Bytes bytes, std::uint64_t recordOffset) {
    ByteReader fields(bytes);
    return fields.takeLittle<std::uint32_t>() == 0x07064b50 &&
           fields.takeLittle<std::uint32_t>() == 0 &&
           fields.takeLittle<std::uint64_t>() == recordOffset &&
           fields.takeLittle<std::uint32_t>() == 1;
}

bool takeZip64EndRecord(base::Bytes bytes, CentralDirectory& directory) {
    ByteReader fields(bytes);
    const bool isSigned = fields.takeLittle<std::uint32_t>() == 0x06064b50 &&
                          fields.takeLittle<std::uint64_t>() == zip64RecordSize - 12;
    const bool isOurs = fields.takeLittle<std::uint16_t>() == madeByUnix &&
                        fields.takeLittle<std::uint16_t>() == 45;
    const bool isOneDisk = fields.takeLittle<std::uint64_t>() == 0;
    const std::uint64_t countOnDisk = fields.takeLittle<std::uint64_t>();
    directory.count = fields.takeLittle<std::uint64_t>();
    directory.size = fields.takeLittle<std::uint64_t>();
    directory.offset = fields.takeLittle<std::uint64_t>();
    return isSigned && isOurs && isOneDisk && countOnDisk == directory.count;
}

} // namespace

base::Result<ArchiveReader> ArchiveReader::open(int descriptor, std::string path) {
    ArchiveReader reader;
    reader.path_ = std::move(path);
    reader.descriptor_ = descriptor;
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return base::systemError("examine", reader.path_, errno);
    reader.fileSize_ = static_cast<std::uint64_t>(status.st_size);
    auto directory = reader.findDirectory();
    if (!directory)
        return directory.error();
    if (auto done = reader.readDirectory(*directory); !done)
        return done.error();
    return reader;
}

base::Result<CentralDirectory> ArchiveReader::findDirectory() const {
    std::array<std::uint8_t, zip64RecordSize + zip64LocatorSize + endRecordSize> end{};
    const std::size_t size = std::min<std::uint64_t>(end.size(), fileSize_);
    if (auto done = read(end.data() + end.size() - size, size, fileSize_ - size); !done)
        return done.error();

    CentralDirectory shortForm;
    bool isWhole = takeEndRecord(base::Bytes(end).last(endRecordSize), shortForm);
    CentralDirectory directory = shortForm;
    std::uint64_t recordsSize = endRecordSize;
    const base::Bytes locator = base::Bytes(end).subspan(zip64RecordSize, zip64LocatorSize);
    if (ByteReader(locator).takeLittle<std::uint32_t>() == 0x07064b50) {
        recordsSize = end.size();
        isWhole = isWhole && isZip64Locator(locator, fileSize_ - recordsSize) &&
                  takeZip64EndRecord(base::Bytes(end).first(zip64RecordSize), directory);
    }
    const CentralDirectory expected{.offset = std::min<std::uint64_t>(directory.offset, 0xFFFFFFFF),
                                    .size = std::min<std::uint64_t>(directory.size, 0xFFFFFFFF),
                                    .count = std::min<std::uint64_t>(directory.count, 0xFFFF)};
    const bool needsZip64 =
        expected.offset == 0xFFFFFFFF || expected.size == 0xFFFFFFFF || expected.count == 0xFFFF;
    isWhole = isWhole && shortForm == expected && needsZip64 == (recordsSize == end.size());
    if (!isWhole || directory.size > fileSize_ ||
        directory.offset != fileSize_ - recordsSize - directory.size)
        return damaged("its end of central directory record");
    return directory;
}

base::Outcome ArchiveReader::readDirectory(const CentralDirectory& directory) {
    base::ByteBuffer bytes;
    const auto size = static_cast<std::size_t>(directory.size);
    if (auto done = read(bytes.tail(size), size, directory.offset); !done)
        return done;
    bytes.extend(size);
    entries_.reserve(std::min<std::uint64_t>(directory.count, size / centralHeaderSize));
    ByteReader fields(bytes.bytes());
    while (!fields.empty()) {
        auto entry = takeCentralDirectoryHeader(fields);
        if (!entry)
            return damaged("a header in its central directory");
        if (!entries_.empty())
            entries_.back().end = entry->localHeaderOffset;
        entries_.push_back(*std::move(entry));
    }
    if (entries_.empty() || entries_.size() != directory.count)
        return damaged("the number of its entries");
    entries_.back().end = directory.offset;
    return {};
}

base::Result<std::uint64_t> ArchiveReader::findData(const ArchivedEntry& entry,
                                                    ArchiveWindow& window) const {
    const std::uint64_t available = fileSize_ - std::min(fileSize_, entry.localHeaderOffset);
    constexpr std::size_t extraSizeAtMost = 29;
    const auto size = static_cast<std::size_t>(
        std::min<std::uint64_t>(available, localHeaderSize + entry.name.size() + extraSizeAtMost));
    auto bytes = window.bytes(entry.localHeaderOffset, size);
    if (!bytes)
        return bytes.error();
    ByteReader fields(*bytes);
    ArchivedEntry local;
    const bool isSigned = fields.takeLittle<std::uint32_t>() == 0x04034b50;
    takeSharedFields(fields, local);
    const std::size_t nameSize = fields.takeLittle<std::uint16_t>();
    const std::size_t extraSize = fields.takeLittle<std::uint16_t>();
    local.name = base::textOf(fields.take(nameSize));
    const base::Bytes extra = fields.take(extraSize);
    const std::uint64_t data = entry.localHeaderOffset + localHeaderSize + nameSize + extraSize;
    if (!isSigned || fields.failed() || !takeExtraFields(extra, local) ||
        !saysTheSame(local, entry) || data + entry.compressedSize != entry.end)
        return damaged(("the local file header of " + entry.name).c_str());
    return data;
}

base::Outcome ArchiveReader::read(std::uint8_t* to, std::size_t size, std::uint64_t offset) const {
    const auto count = base::readAt(descriptor_, to, size, offset);
    if (!count)
        return base::systemError("read", path_, errno);
    if (*count != size)
        return damaged("its length");
    return {};
}

base::Result<base::Bytes> ArchiveWindow::bytes(std::uint64_t offset, std::size_t size) {
    if (offset < start_ || offset - start_ > held_.size() ||
        size > held_.size() - static_cast<std::size_t>(offset - start_)) {
        const std::uint64_t available = archive_.fileSize_ - std::min(archive_.fileSize_, offset);
        const auto wanted =
            std::max(size, static_cast<std::size_t>(std::min<std::uint64_t>(available, usualSize)));
        held_.clear();
        if (auto done = archive_.read(held_.tail(wanted), wanted, offset); !done)
            return done.error();
        held_.extend(wanted);
        start_ = offset;
    }
    return held_.bytes().subspan(static_cast<std::size_t>(offset - start_), size);
}

base::Error ArchiveReader::damaged(const char* what) const {
    return {base::ErrorKind::Damaged, "The archive " + path_ + " is damaged: " + what +
                                          " is wrong. Check the disk and pack again."};
}

} // namespace zip
