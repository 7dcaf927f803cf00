#include "zip/ZipFormat.h"

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

namespace {

std::uint32_t numberAt(const base::ByteBuffer& buffer, std::size_t offset, std::size_t size) {
    std::uint32_t number = 0;
    for (std::size_t index = size; index-- > 0;)
        number = number << 8 | buffer.bytes()[offset + index];
    return number;
}

TEST(DosTime, HoldsLocalTimeOrUtcInStepsOfTwoSeconds) {
    ::setenv("TZ", "XYZ-3", 1);
    ::tzset();
    constexpr std::int64_t time = 981173107; // 2001-02-03 04:05:07 UTC
    const zip::DosTime utc = zip::dosTime(time, true);
    EXPECT_EQ(utc.date, 21 << 9 | 2 << 5 | 3);
    EXPECT_EQ(utc.time, 4 << 11 | 5 << 5 | 3);
    const zip::DosTime local = zip::dosTime(time, false);
    EXPECT_EQ(local.date, utc.date);
    EXPECT_EQ(local.time, 7 << 11 | 5 << 5 | 3);
    ::unsetenv("TZ");
    ::tzset();
}

TEST(DosTime, TakesTheNearestTimeWhereItCannotHoldIt) {
    for (const std::int64_t early : {INT64_MIN, std::int64_t{-1}, std::int64_t{170856000}}) {
        EXPECT_EQ(zip::dosTime(early, true).date, 1 << 5 | 1);
        EXPECT_EQ(zip::dosTime(early, true).time, 0);
    }
    for (const std::int64_t late : {std::int64_t{4354819200}, INT64_MAX}) {
        EXPECT_EQ(zip::dosTime(late, true).date, 127 << 9 | 12 << 5 | 31);
        EXPECT_EQ(zip::dosTime(late, true).time, 23 << 11 | 59 << 5 | 29);
    }
}

TEST(LocalFileHeader, MarksUtf8NamesAndHasSizesInZip64ExactlyFromFourGigabytesOn) {
    const auto header = [](const zip::HeaderFields& fields) {
        base::ByteBuffer bytes;
        zip::appendLocalFileHeader(bytes, fields);
        return bytes;
    };
    constexpr std::size_t flags = 6;
    constexpr std::size_t compressedSize = 18;
    constexpr std::size_t size = 22;
    EXPECT_EQ(numberAt(header({.name = "ä"}), flags, 2), 0x0800U);
    EXPECT_EQ(numberAt(header({.name = "\xe4"}), flags, 2), 0U);
    const auto narrow = header({.name = "n", .compressedSize = 7, .size = 0xFFFFFFFE});
    EXPECT_EQ(numberAt(narrow, compressedSize, 4), 7U);
    EXPECT_EQ(numberAt(narrow, size, 4), 0xFFFFFFFE);
    const auto wide = header({.name = "n", .compressedSize = 7, .size = 0xFFFFFFFF});
    EXPECT_EQ(numberAt(wide, compressedSize, 4), zip::inZip64);
    EXPECT_EQ(numberAt(wide, size, 4), zip::inZip64);
    EXPECT_EQ(wide.size(), narrow.size() + 20);
}

TEST(CentralDirectory, HasInZip64OnlyWhatDoesNotFit) {
    const auto sizeOfExtra = [](const zip::HeaderFields& fields) {
        base::ByteBuffer header;
        zip::appendCentralDirectoryHeader(header, fields);
        return numberAt(header, 30, 2);
    };
    constexpr std::uint64_t wide = 0x100000000;
    const std::uint32_t none = sizeOfExtra({.name = "n", .localHeaderOffset = 0xFFFFFFFE});
    EXPECT_EQ(sizeOfExtra({.name = "n", .localHeaderOffset = wide}), none + 4 + 8);
    EXPECT_EQ(sizeOfExtra({.name = "n", .size = wide}), none + 4 + 8);
    EXPECT_EQ(sizeOfExtra({.name = "n", .compressedSize = wide, .size = wide}), none + 4 + 16);

    const auto sizeOfEnd = [](std::uint64_t count, std::uint64_t offset, std::uint64_t size) {
        base::ByteBuffer end;
        zip::appendEndOfCentralDirectory(end, count, offset, size);
        return end.size();
    };
    constexpr std::size_t plainSize = 22;
    constexpr std::size_t zip64Size = 56 + 20 + plainSize;
    EXPECT_EQ(sizeOfEnd(65534, 0xFFFFFFFE, 100), plainSize);
    EXPECT_EQ(sizeOfEnd(65535, 0, 100), zip64Size);
    EXPECT_EQ(sizeOfEnd(1, 0xFFFFFFFF, 100), zip64Size);
    EXPECT_EQ(sizeOfEnd(1, 0, 0xFFFFFFFF), zip64Size);
}

} // namespace
