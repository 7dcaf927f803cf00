#pragma once

#include "base/Bytes.h"
#include "base/Result.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zip {

class ArchiveWindow;

/// One entry as its header in the central directory (APPNOTE.TXT, 4.3.12) tells it.
struct ArchivedEntry {
    std::string name;
    std::uint16_t versionNeeded = 0;
    std::uint16_t method = 0;
    std::uint16_t mode = 0;
    std::uint16_t flags = 0;
    std::uint32_t crc32 = 0;
    std::uint32_t dosModified = 0;
    /// The extended time stamp, in seconds since 1970.
    std::uint32_t modified = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    std::uint64_t localHeaderOffset = 0;
    /// Offset at which the next entry or the central directory starts.
    std::uint64_t end = 0;
};

/// Offset and size of the central directory, and the number of its entries.
struct CentralDirectory {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    std::uint64_t count = 0;

    bool operator==(const CentralDirectory&) const = default;
};

/// Reads archives that this packer has written. It shares no code with ZipFormat, which writes
/// them. Any thread may use one.
class ArchiveReader {
public:
    /// `descriptor` is open for reading as long as the reader lives; `path` is for messages.
    [[nodiscard]] static base::Result<ArchiveReader> open(int descriptor, std::string path);

    [[nodiscard]] std::span<const ArchivedEntry> entries() const { return entries_; }

    /// The offset of the entry's data. Fails if the local file header differs from the central
    /// directory, or if the data does not end where the next entry starts.
    [[nodiscard]] base::Result<std::uint64_t> findData(const ArchivedEntry& entry,
                                                       ArchiveWindow& window) const;

    /// Reads exactly `size` bytes at `offset`.
    [[nodiscard]] base::Outcome read(std::uint8_t* to, std::size_t size,
                                     std::uint64_t offset) const;

private:
    [[nodiscard]] base::Result<CentralDirectory> findDirectory() const;
    [[nodiscard]] base::Outcome readDirectory(const CentralDirectory& directory);
    [[nodiscard]] base::Error damaged(const char* what) const;

    std::string path_;
    int descriptor_ = -1;
    std::uint64_t fileSize_ = 0;
    std::vector<ArchivedEntry> entries_;

    friend class ArchiveWindow;
};

/// A part of an archive in memory: entries that stand next to each other are read together. Each
/// thread needs one of its own.
class ArchiveWindow {
public:
    static constexpr std::size_t usualSize = std::size_t{128} << 10;

    /// The archive must outlive the window.
    explicit ArchiveWindow(const ArchiveReader& archive) : archive_(archive) {}

    /// Exactly `size` bytes of the archive; valid until the next call.
    [[nodiscard]] base::Result<base::Bytes> bytes(std::uint64_t offset, std::size_t size);

    /// The archive itself, for what is long.
    [[nodiscard]] const ArchiveReader& archive() const { return archive_; }

private:
    const ArchiveReader& archive_;
    std::uint64_t start_ = 0;
    base::ByteBuffer held_;
};

} // namespace zip
