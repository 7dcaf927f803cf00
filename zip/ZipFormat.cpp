#include "zip/ZipFormat.h"

#include "base/ByteWriter.h"
#include "base/Utf8.h"

#include <algorithm>
#include <array>
#include <ctime>

#include <sys/stat.h>

namespace zip {
namespace {

constexpr std::uint16_t madeByUnix = 3 << 8;
constexpr std::uint16_t versionOfZip64 = 45;
constexpr std::uint16_t versionOfDeflateAndFolders = 20;
constexpr std::uint16_t namesInUtf8 = 1 << 11;
constexpr std::uint32_t dosFolder = 0x10;

template <typename Integer>
void put(base::ByteBuffer& to, Integer value) {
    base::appendLittle(to, value);
}

void put(base::ByteBuffer& to, std::string_view text) {
    base::appendText(to, text);
}

bool needsZip64(std::uint64_t value) {
    return value >= inZip64;
}

std::uint32_t orInZip64(std::uint64_t value) {
    return needsZip64(value) ? inZip64 : static_cast<std::uint32_t>(value);
}

void putZip64Extra(base::ByteBuffer& to, std::span<const std::uint64_t> values) {
    put(to, zip64ExtraTag);
    put(to, static_cast<std::uint16_t>(values.size() * sizeof(std::uint64_t)));
    for (const std::uint64_t value : values)
        put(to, value);
}

constexpr std::uint16_t timestampExtraSize = 9;

// Readers take the stamp as 32 bits without a sign.
void putTimestampExtra(base::ByteBuffer& to, std::int64_t seconds) {
    constexpr std::uint8_t onlyModified = 1;
    put(to, timestampExtraTag);
    put(to, static_cast<std::uint16_t>(timestampExtraSize - 4));
    put(to, onlyModified);
    put(to, static_cast<std::uint32_t>(
                std::clamp<std::int64_t>(seconds, 0, std::numeric_limits<std::uint32_t>::max())));
}

/// From "version needed to extract" to "crc-32", the same in both headers.
void putCommonFields(base::ByteBuffer& to, const HeaderFields& fields, bool zip64) {
    put(to, zip64 ? versionOfZip64 : versionOfDeflateAndFolders);
    put(to, base::isValidUtf8(fields.name) ? namesInUtf8 : std::uint16_t{0});
    put(to, static_cast<std::uint16_t>(fields.method));
    put(to, fields.dosModified.time);
    put(to, fields.dosModified.date);
    put(to, fields.crc32);
}

} // namespace

DosTime dosTime(std::int64_t seconds, bool inUtc) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if ((inUtc ? ::gmtime_r(&time, &parts) : ::localtime_r(&time, &parts)) == nullptr)
        parts.tm_year = seconds < 0 ? 0 : std::numeric_limits<int>::max();
    const auto field = [](int value, int shift) {
        return static_cast<std::uint16_t>(static_cast<unsigned>(value)
                                          << static_cast<unsigned>(shift));
    };
    if (parts.tm_year < 80)
        return {0, static_cast<std::uint16_t>(field(1, 5) | 1)};
    if (parts.tm_year > 207)
        return {static_cast<std::uint16_t>(field(23, 11) | field(59, 5) | 29),
                static_cast<std::uint16_t>(field(127, 9) | field(12, 5) | 31)};
    const int evenSeconds = std::min(parts.tm_sec, 59) / 2;
    return {
        static_cast<std::uint16_t>(field(parts.tm_hour, 11) | field(parts.tm_min, 5) | evenSeconds),
        static_cast<std::uint16_t>(field(parts.tm_year - 80, 9) | field(parts.tm_mon + 1, 5) |
                                   parts.tm_mday)};
}

void appendLocalFileHeader(base::ByteBuffer& to, const HeaderFields& fields) {
    const bool zip64 = needsZip64(fields.size);
    const std::size_t extraSize = timestampExtraSize + (zip64 ? 20 : 0);
    put(to, localFileHeaderSignature);
    putCommonFields(to, fields, zip64);
    put(to, zip64 ? inZip64 : static_cast<std::uint32_t>(fields.compressedSize));
    put(to, orInZip64(fields.size));
    put(to, static_cast<std::uint16_t>(fields.name.size()));
    put(to, static_cast<std::uint16_t>(extraSize));
    put(to, fields.name);
    if (zip64)
        putZip64Extra(to, std::array{fields.size, fields.compressedSize});
    putTimestampExtra(to, fields.modified);
}

void appendCentralDirectoryHeader(base::ByteBuffer& to, const HeaderFields& fields) {
    std::array<std::uint64_t, 3> wide{};
    std::size_t wideCount = 0;
    for (const std::uint64_t value : {fields.size, fields.compressedSize, fields.localHeaderOffset})
        if (needsZip64(value))
            wide[wideCount++] = value;
    const std::size_t zip64Size = wideCount == 0 ? 0 : 4 + wideCount * sizeof(std::uint64_t);

    put(to, centralDirectoryHeaderSignature);
    put(to, static_cast<std::uint16_t>(madeByUnix | versionOfZip64));
    putCommonFields(to, fields, wideCount != 0);
    put(to, orInZip64(fields.compressedSize));
    put(to, orInZip64(fields.size));
    put(to, static_cast<std::uint16_t>(fields.name.size()));
    put(to, static_cast<std::uint16_t>(timestampExtraSize + zip64Size));
    put(to, std::uint16_t{0}); // length of the comment
    put(to, std::uint16_t{0}); // disk where the entry starts
    put(to, std::uint16_t{0}); // internal attributes
    put(to, std::uint32_t{fields.mode} << 16 | (S_ISDIR(fields.mode) ? dosFolder : 0));
    put(to, orInZip64(fields.localHeaderOffset));
    put(to, fields.name);
    if (wideCount != 0)
        putZip64Extra(to, {wide.data(), wideCount});
    putTimestampExtra(to, fields.modified);
}

void appendEndOfCentralDirectory(base::ByteBuffer& to, std::uint64_t entryCount,
                                 std::uint64_t directoryOffset, std::uint64_t directorySize) {
    const bool manyEntries = entryCount >= countInZip64;
    if (manyEntries || needsZip64(directoryOffset) || needsZip64(directorySize)) {
        constexpr std::uint64_t sizeAfterThisField = 44;
        put(to, zip64EndRecordSignature);
        put(to, sizeAfterThisField);
        put(to, static_cast<std::uint16_t>(madeByUnix | versionOfZip64));
        put(to, versionOfZip64);
        put(to, std::uint32_t{0}); // this disk
        put(to, std::uint32_t{0}); // disk of the central directory
        put(to, entryCount);       // on this disk
        put(to, entryCount);
        put(to, directorySize);
        put(to, directoryOffset);

        put(to, zip64EndLocatorSignature);
        put(to, std::uint32_t{0}); // disk of the zip64 end record
        put(to, directoryOffset + directorySize);
        put(to, std::uint32_t{1}); // number of disks
    }
    const std::uint16_t shortCount =
        manyEntries ? countInZip64 : static_cast<std::uint16_t>(entryCount);
    put(to, endRecordSignature);
    put(to, std::uint16_t{0}); // this disk
    put(to, std::uint16_t{0}); // disk of the central directory
    put(to, shortCount);       // on this disk
    put(to, shortCount);
    put(to, orInZip64(directorySize));
    put(to, orInZip64(directoryOffset));
    put(to, std::uint16_t{0}); // length of the comment
}

} // namespace zip
