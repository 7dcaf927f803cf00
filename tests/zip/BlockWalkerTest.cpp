#include "zip/BlockWalker.h"

#include "TestTree.h"

#include <gtest/gtest.h>
#include <libdeflate.h>

namespace {

using base::Bytes;
using base::bytesOf;
using zip::findFinalBlock;

/// Writes bits in the order of a deflate stream.
class BitWriter {
public:
    BitWriter& bits(std::uint64_t value, unsigned count) {
        for (unsigned bit = 0; bit < count; ++bit, ++count_) {
            if (count_ % 8 == 0)
                bytes_ += '\0';
            bytes_.back() = static_cast<char>(static_cast<unsigned char>(bytes_.back()) |
                                              ((value >> bit) & 1) << (count_ % 8));
        }
        return *this;
    }
    /// A code goes in with its highest bit first.
    BitWriter& code(std::uint32_t value, unsigned count) {
        while (count-- > 0)
            bits(value >> count, 1);
        return *this;
    }
    BitWriter& stored(bool isFinal, std::string_view content) {
        bits(isFinal ? 1 : 0, 1).bits(0, 2).bits(0, (8 - count_ % 8) % 8);
        const auto size = static_cast<std::uint32_t>(content.size());
        bits(size, 16).bits(~size, 16);
        for (const char c : content)
            bits(static_cast<unsigned char>(c), 8);
        return *this;
    }
    /// The literals 'a' and 'b', a match of the longest length and the farthest distance, and the
    /// end.
    BitWriter& fixed(bool isFinal) {
        bits(isFinal ? 1 : 0, 1).bits(1, 2);
        code(0x30 + 'a', 8).code(0x30 + 'b', 8);
        code(0xC0 + 284 - 280, 8).bits(31, 5).code(29, 5).bits(0x1FFF, 13);
        return code(0, 7);
    }

    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] Bytes bytes() const { return bytesOf(bytes_); }

private:
    std::string bytes_;
    std::size_t count_ = 0;
};

std::string deflate(const std::string& content, int level) {
    auto* compressor = libdeflate_alloc_compressor(level);
    std::string out(libdeflate_deflate_compress_bound(compressor, content.size()), '\0');
    out.resize(libdeflate_deflate_compress(compressor, content.data(), content.size(), out.data(),
                                           out.size()));
    libdeflate_free_compressor(compressor);
    return out;
}

TEST(BlockWalker, finds_the_final_block_behind_blocks_of_each_type) {
    const std::string longest(0xFFFF, 's');
    for (const std::string_view content :
         {std::string_view(), std::string_view("abc"), std::string_view(longest)}) {
        BitWriter stream;
        stream.fixed(false).stored(false, content).fixed(false).fixed(false);
        const std::size_t headerOfFixed = stream.size();
        BitWriter withFixed = stream;
        withFixed.fixed(true);
        const auto fixed = findFinalBlock(withFixed.bytes());
        ASSERT_TRUE(fixed);
        EXPECT_EQ(fixed->headerBit, headerOfFixed);
        EXPECT_EQ(fixed->endBit, withFixed.size());

        stream.stored(true, content);
        const auto stored = findFinalBlock(stream.bytes());
        ASSERT_TRUE(stored);
        EXPECT_EQ(stored->headerBit, headerOfFixed);
        EXPECT_EQ(stored->endBit, stream.size());
    }
}

/// Frequencies like Fibonacci numbers give codes of all lengths up to the longest.
std::string withLongCodes() {
    std::string content;
    for (std::size_t symbol = 0, a = 1, b = 1; symbol < 24; ++symbol, a = std::exchange(b, a + b))
        content.append(a, static_cast<char>('a' + symbol));
    std::shuffle(content.begin(), content.end(), std::mt19937(3));
    return content;
}

TEST(BlockWalker, finds_the_final_block_at_every_level_and_kind_of_content) {
    std::mt19937 random(7);
    std::vector<std::string> contents{"", "a", std::string(1000000, '\0'),
                                      randomBytes(random, 300000), withLongCodes()};
    for (const std::size_t size : {10U, 1000U, 70000U, 900000U})
        contents.push_back(compressibleBytes(random, size));
    for (int level = 0; level <= 12; ++level) {
        for (const std::string& content : contents) {
            SCOPED_TRACE(testing::Message() << "level " << level << ", " << content.size());
            std::string stream = deflate(content, level);
            const auto last = findFinalBlock(bytesOf(stream));
            ASSERT_TRUE(last);
            EXPECT_EQ((last->endBit + 7) / 8, stream.size());
            // With that bit cleared, what follows goes on where the content ended.
            char& header = stream[last->headerBit / 8];
            const char bit = static_cast<char>(1 << last->headerBit % 8);
            ASSERT_NE(header & bit, 0);
            header = static_cast<char>(header & ~bit);
            BitWriter joined;
            for (std::size_t index = 0; index < last->endBit; ++index)
                joined.bits(static_cast<unsigned char>(stream[index / 8]) >> index % 8, 1);
            joined.stored(true, "more");
            EXPECT_EQ(inflate(joined.bytes(), content.size() + 4), content + "more");
        }
    }
}

TEST(BlockWalker, refuses_streams_that_end_early) {
    std::mt19937 random(5);
    const std::string stream = deflate(compressibleBytes(random, 3000), 6);
    ASSERT_TRUE(findFinalBlock(bytesOf(stream)));
    for (std::size_t size = 0; size < stream.size(); ++size)
        EXPECT_FALSE(findFinalBlock(bytesOf(stream).first(size))) << size;
}

TEST(BlockWalker, refuses_malformed_blocks) {
    const std::vector<std::pair<const char*, BitWriter>> malformed{
        {"reserved type", BitWriter().bits(1, 1).bits(3, 2)},
        {"length without its complement", BitWriter().bits(1, 3).bits(0, 5).bits(5, 32)},
        {"length code that does not exist", BitWriter().bits(3, 3).code(0xC6, 8)},
        {"distance code that does not exist", BitWriter().bits(3, 3).code(1, 7).code(30, 5)},
        {"too many literal codes", BitWriter().bits(5, 3).bits(31, 5)},
        {"more code lengths than there is room for",
         BitWriter().bits(5, 3).bits(0, 14).bits(0x249, 12)}};
    for (auto [name, stream] : malformed)
        EXPECT_FALSE(findFinalBlock(stream.bits(0, 64).bits(0, 64).bits(0, 64).bytes())) << name;
}

} // namespace
