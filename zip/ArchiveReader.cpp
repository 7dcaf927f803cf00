#include "zip/ArchiveReader.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>

namespace zip {
namespace {

constexpr std::size_t endRecordSize = 22;
constexpr std::size_t zip64LocatorSize = 20;
constexpr std::size_t zip64RecordSize = 56;
constexpr std::size_t localHeaderSize = 30;
constexpr std::uint16_t madeByUnix = 3 << 8 | 45;
constexpr std::uint16_t nameIsUtf8 = 1 << 11;

/// Takes numbers from bytes one after the other; past the end they are 0 and failed() is true.
class Fields {
public:
    explicit Fields(base::Bytes bytes) : bytes_(bytes) {}

    template <typename Integer>
    Integer take() {
        Integer value = 0;
        const base::Bytes raw = takeBytes(sizeof value);
        for (std::size_t index = raw.size(); index-- > 0;)
            value = static_cast<Integer>(value << 8 | raw[index]);
        return value;
    }
    std::uint16_t take16() { return take<std::uint16_t>(); }
    std::uint32_t take32() { return take<std::uint32_t>(); }
    std::uint64_t take64() { return take<std::uint64_t>(); }

    base::Bytes takeBytes(std::size_t count) {
        failed_ = failed_ || count > bytes_.size();
        if (failed_)
            return {};
        const base::Bytes taken = bytes_.first(count);
        bytes_ = bytes_.subspan(count);
        return taken;
    }

    [[nodiscard]] bool failed() const { return failed_; }
    [[nodiscard]] bool empty() const { return failed_ || bytes_.empty(); }

private:
    base::Bytes bytes_;
    bool failed_ = false;
};

std::string textOf(base::Bytes bytes) {
    return {bytes.begin(), bytes.end()};
}

/// Completes the entry from its extra fields; false if they are malformed, lack the time stamp or
/// need another version than the entry says.
bool takeExtraFields(base::Bytes bytes, ArchivedEntry& entry) {
    bool hasTimestamp = false;
    std::uint16_t versionNeeded = 20;
    Fields extras(bytes);
    while (!extras.empty()) {
        const std::uint16_t tag = extras.take16();
        Fields extra(extras.takeBytes(extras.take16()));
        if (tag == 0x0001) {
            versionNeeded = 45;
            for (std::uint64_t* field :
                 {&entry.size, &entry.compressedSize, &entry.localHeaderOffset})
                if (*field == 0xFFFFFFFF)
                    *field = extra.take64();
        } else if (tag == 0x5455) {
            hasTimestamp = (extra.take<std::uint8_t>() & 1) != 0;
            entry.modified = extra.take32();
        }
        if (extra.failed())
            return false;
    }
    return hasTimestamp && !extras.failed() && entry.versionNeeded == versionNeeded;
}

/// What the two headers of an entry have in common, in the same order.
void takeSharedFields(Fields& fields, ArchivedEntry& entry) {
    entry.versionNeeded = fields.take16();
    entry.flags = fields.take16();
    entry.method = fields.take16();
    entry.dosModified = fields.take32();
    entry.crc32 = fields.take32();
    entry.compressedSize = fields.take32();
    entry.size = fields.take32();
}

std::optional<ArchivedEntry> takeCentralDirectoryHeader(Fields& fields) {
    ArchivedEntry entry;
    if (fields.take32() != 0x02014b50 || fields.take16() != madeByUnix)
        return std::nullopt;
    takeSharedFields(fields, entry);
    const std::size_t nameSize = fields.take16();
    const std::size_t extraSize = fields.take16();
    const std::size_t commentSize = fields.take16();
    const std::uint16_t disk = fields.take16();
    const std::uint16_t internalAttributes = fields.take16();
    const std::uint16_t dosAttributes = fields.take16();
    entry.mode = fields.take16();
    entry.localHeaderOffset = fields.take32();
    entry.name = textOf(fields.takeBytes(nameSize));
    const base::Bytes extra = fields.takeBytes(extraSize);
    const std::uint16_t dosExpected = entry.name.ends_with('/') ? 0x10 : 0;
    // Any other flag says that the data is encrypted or stands elsewhere.
    const bool hasOddFlags = (entry.flags & ~nameIsUtf8) != 0;
    if (fields.failed() || hasOddFlags || commentSize != 0 || disk != 0 ||
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
    Fields fields(bytes);
    const bool isSigned = fields.take32() == 0x06054b50;
    const bool isOneDisk = fields.take32() == 0;
    const std::uint16_t countOnDisk = fields.take16();
    directory.count = fields.take16();
    directory.size = fields.take32();
    directory.offset = fields.take32();
    const bool hasComment = fields.take16() != 0;
    return isSigned && isOneDisk && countOnDisk == directory.count && !hasComment;
}

bool isZip64Locator(base::Bytes bytes, std::uint64_t recordOffset) {
    Fields fields(bytes);
    return fields.take32() == 0x07064b50 && fields.take32() == 0 &&
           fields.take64() == recordOffset && fields.take32() == 1;
}

bool takeZip64EndRecord(base::Bytes bytes, CentralDirectory& directory) {
    Fields fields(bytes);
    const bool isSigned = fields.take32() == 0x06064b50 && fields.take64() == zip64RecordSize - 12;
    const bool isOurs = fields.take16() == madeByUnix && fields.take16() == 45;
    const bool isOneDisk = fields.take64() == 0;
    const std::uint64_t countOnDisk = fields.take64();
    directory.count = fields.take64();
    directory.size = fields.take64();
    directory.offset = fields.take64();
    return isSigned && isOurs && isOneDisk && countOnDisk == directory.count;
}

} // namespace

base::Result<ArchiveReader> ArchiveReader::read(base::FileDescriptor archive, std::string path) {
    ArchiveReader reader;
    reader.path_ = std::move(path);
    reader.opened_ = std::move(archive);
    struct stat status {};
    if (::fstat(reader.opened_.get(), &status) != 0)
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

    CentralDirectory directory;
    std::uint64_t recordsSize = endRecordSize;
    bool isWhole = takeEndRecord(base::Bytes(end).last(endRecordSize), directory);
    const base::Bytes locator = base::Bytes(end).subspan(zip64RecordSize, zip64LocatorSize);
    if (Fields(locator).take32() == 0x07064b50) {
        recordsSize = end.size();
        isWhole = isWhole && isZip64Locator(locator, fileSize_ - recordsSize) &&
                  takeZip64EndRecord(base::Bytes(end).first(zip64RecordSize), directory);
    }
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
    Fields fields(bytes.bytes());
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

base::Result<std::uint64_t> ArchiveReader::findData(const ArchivedEntry& entry) const {
    const std::uint64_t available = fileSize_ - std::min(fileSize_, entry.localHeaderOffset);
    constexpr std::size_t extraSizeAtMost = 29;
    const auto size = static_cast<std::size_t>(
        std::min<std::uint64_t>(available, localHeaderSize + entry.name.size() + extraSizeAtMost));
    base::ByteBuffer bytes;
    if (auto done = read(bytes.tail(size), size, entry.localHeaderOffset); !done)
        return done.error();
    bytes.extend(size);

    Fields fields(bytes.bytes());
    ArchivedEntry local;
    const bool isSigned = fields.take32() == 0x04034b50;
    takeSharedFields(fields, local);
    const std::size_t nameSize = fields.take16();
    const std::size_t extraSize = fields.take16();
    local.name = textOf(fields.takeBytes(nameSize));
    const base::Bytes extra = fields.takeBytes(extraSize);
    const std::uint64_t data = entry.localHeaderOffset + localHeaderSize + nameSize + extraSize;
    if (!isSigned || fields.failed() || !takeExtraFields(extra, local) ||
        !saysTheSame(local, entry) || data + entry.compressedSize != entry.end)
        return damaged(("the local file header of " + entry.name).c_str());
    return data;
}

base::Outcome ArchiveReader::read(std::uint8_t* to, std::size_t size, std::uint64_t offset) const {
    const auto count = base::readAt(opened_.get(), to, size, offset);
    if (!count)
        return base::systemError("read", path_, errno);
    if (*count != size)
        return damaged("its length");
    return {};
}

base::Error ArchiveReader::damaged(const char* what) const {
    return {base::ErrorKind::Damaged, "The archive " + path_ + " is damaged: " + what +
                                          " is wrong. Check the disk and pack again."};
}

} // namespace zip
