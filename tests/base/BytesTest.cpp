#include "base/ByteReader.h"
#include "base/ByteWriter.h"

#include <gtest/gtest.h>

namespace {

using base::ByteReader;

TEST(Bytes, AreReadAsTheyWereWrittenInEitherOrder) {
    base::ByteBuffer bytes;
    base::appendBig(bytes, std::uint32_t{0xFADE0CC0});
    base::appendLittle(bytes, std::uint64_t{0x0102030405060708});
    base::appendText(bytes, "end");
    EXPECT_EQ(bytes.data()[0], 0xFA);
    EXPECT_EQ(bytes.data()[4], 0x08);

    ByteReader reader(bytes.bytes());
    EXPECT_EQ(reader.takeBig<std::uint32_t>(), 0xFADE0CC0U);
    EXPECT_EQ(reader.takeLittle<std::uint64_t>(), 0x0102030405060708U);
    EXPECT_EQ(base::textOf(reader.take(3)), "end");
    EXPECT_TRUE(reader.empty());
    EXPECT_FALSE(reader.failed());
}

TEST(ByteReader, FailsForGoodOnceItReachesPastTheEnd) {
    ByteReader reader(base::bytesOf("abc"));
    EXPECT_EQ(reader.takeBig<std::uint32_t>(), 0U);
    EXPECT_TRUE(reader.failed());
    EXPECT_EQ(reader.takeBig<std::uint8_t>(), 0U);
    EXPECT_TRUE(reader.take(1).empty());
}

} // namespace
