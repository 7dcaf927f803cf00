#pragma once

#include "base/Bytes.h"

#include <cstdint>
#include <limits>
#include <string_view>

// The records of a zip archive, as PKWARE's APPNOTE.TXT defines them; the extended time stamp is
// Info-ZIP's extra field.
namespace zip {

constexpr std::uint32_t localFileHeaderSignature = 0x04034b50;
constexpr std::uint32_t centralDirectoryHeaderSignature = 0x02014b50;
constexpr std::uint32_t zip64EndRecordSignature = 0x06064b50;
constexpr std::uint32_t zip64EndLocatorSignature = 0x07064b50;
constexpr std::uint32_t endRecordSignature = 0x06054b50;

constexpr std::uint16_t zip64ExtraTag = 0x0001;
constexpr std::uint16_t timestampExtraTag = 0x5455;

/// What a field holds when its value stands in the zip64 record instead.
constexpr std::uint32_t inZip64 = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint16_t countInZip64 = std::numeric_limits<std::uint16_t>::max();

enum class Method : std::uint16_t { Stored = 0, Deflated = 8 };

/// A point in time as MS-DOS has it: local time in steps of two seconds, from 1980 to 2107.
struct DosTime {
    std::uint16_t time = 0;
    std::uint16_t date = 0;
};

/// `seconds` since 1970, in the zone of this machine or in UTC; a time out of range becomes the
/// nearest one in range. Any thread may call it.
[[nodiscard]] DosTime dosTime(std::int64_t seconds, bool inUtc);

/// What the headers say about one entry.
struct HeaderFields {
    std::string_view name{};
    /// Type and permissions as in Unix.
    std::uint16_t mode = 0;
    /// In seconds since 1970.
    std::int64_t modified = 0;
    DosTime dosModified{};
    Method method = Method::Stored;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    /// Alone decides whether the local file header has a zip64 extra field.
    std::uint64_t size = 0;
    std::uint64_t localHeaderOffset = 0;
};

void appendLocalFileHeader(base::ByteBuffer& to, const HeaderFields& fields);
void appendCentralDirectoryHeader(base::ByteBuffer& to, const HeaderFields& fields);

/// Appends the end of central directory record. If one of the numbers does not fit, the zip64
/// record and locator come before it.
void appendEndOfCentralDirectory(base::ByteBuffer& to, std::uint64_t entryCount,
                                 std::uint64_t directoryOffset, std::uint64_t directorySize);

} // namespace zip
