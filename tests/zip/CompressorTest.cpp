#include "zip/Compressor.h"

#include "TestTree.h"

#include <gtest/gtest.h>
#include <libdeflate.h>

namespace {

using base::bytesOf;

zip::PaddedContent padded(std::string_view text) {
    zip::PaddedContent content;
    content.assign(bytesOf(text));
    return content;
}

TEST(Compressor, JoinsPiecesOfAnyKindIntoOneStream) {
    std::mt19937 random(2);
    for (int level = zip::quickestLevel; level <= zip::smallestLevel; ++level) {
        zip::Compressor compressor(level);
        for (int round = 0; round < 20; ++round) {
            std::string content;
            base::ByteBuffer stream;
            const std::size_t pieces = 1 + random() % 5;
            for (std::size_t piece = 1; piece <= pieces; ++piece) {
                const std::size_t size = 1 + random() % (1U << random() % 18);
                // Noise, something else, or one behind the other, which are blocks of their own.
                const auto kind = random() % 3;
                std::string next = kind == 0 ? std::string() : compressibleBytes(random, size);
                next += kind == 1 ? std::string() : randomBytes(random, size);
                const std::size_t before = stream.size();
                compressor.deflatePiece(padded(next), piece == pieces, stream);
                if (kind == 1 && size > 1000) {
                    EXPECT_LT(stream.size() - before, size);
                }
                content += next;
            }
            ASSERT_EQ(inflate(stream.bytes(), content.size()), content) << "level " << level;
        }
    }
}

TEST(Compressor, KeepsAPieceThatDoesNotShrinkCloseToItsSize) {
    std::mt19937 random(3);
    const std::string content = randomBytes(random, 500000);
    base::ByteBuffer stream;
    zip::Compressor(9).deflatePiece(padded(content), true, stream);
    EXPECT_EQ(inflate(stream.bytes(), content.size()), content);
    EXPECT_LE(stream.size(), content.size() + 5 * 9);
}

TEST(Compressor, MakesAWholeStreamOnlyIfItIsShorter) {
    std::mt19937 random(4);
    for (const int level : {5, 9}) {
        zip::Compressor compressor(level);
        base::ByteBuffer stream;
        for (const std::string& content :
             {std::string(), std::string("x"), randomBytes(random, 5000)})
            EXPECT_FALSE(compressor.deflateWhole(padded(content), stream));
        EXPECT_EQ(stream.size(), 0U);
        const std::string content = compressibleBytes(random, 5000);
        EXPECT_TRUE(compressor.deflateWhole(padded(content), stream));
        EXPECT_LT(stream.size(), content.size());
        EXPECT_EQ(inflate(stream.bytes(), content.size()), content);
    }
}

std::uint32_t crc32Of(std::string_view text) {
    return libdeflate_crc32(0, text.data(), text.size());
}

TEST(Crc32OfJoined, IsThatOfTheWhole) {
    std::mt19937 random(1);
    const std::string content = randomBytes(random, 70000);
    const std::string_view whole = content;
    for (const std::size_t cut : {0U, 1U, 2U, 255U, 4096U, 69999U, 70000U})
        EXPECT_EQ(zip::crc32OfJoined(crc32Of(whole.substr(0, cut)), crc32Of(whole.substr(cut)),
                                     whole.size() - cut),
                  crc32Of(whole))
            << cut;
}

TEST(Crc32OfJoined, TakesLengthsBeyondFourGigabytes) {
    // A run of 2^33 zeros, doubled up from one.
    std::uint32_t zeros = crc32Of(std::string_view("\0", 1));
    for (unsigned doubling = 0; doubling < 33; ++doubling)
        zeros = zip::crc32OfJoined(zeros, zeros, std::uint64_t{1} << doubling);
    // As another program found.
    EXPECT_EQ(zeros, 0x41D912FFU);
}

} // namespace
