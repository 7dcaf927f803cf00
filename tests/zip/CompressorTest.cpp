#include "zip/Compressor.h"

#include "TestTree.h"

#include <gtest/gtest.h>
#include <libdeflate.h>

namespace {

std::string inflate(zip::Bytes stream, std::size_t size) {
    auto* decompressor = libdeflate_alloc_decompressor();
    std::string out(size, '\0');
    std::size_t used = 0;
    EXPECT_EQ(libdeflate_deflate_decompress_ex(decompressor, stream.data(), stream.size(),
                                               out.data(), out.size(), &used, nullptr),
              LIBDEFLATE_SUCCESS);
    EXPECT_EQ(used, stream.size());
    libdeflate_free_decompressor(decompressor);
    return out;
}

TEST(Compressor, joins_pieces_of_any_kind_into_one_stream) {
    std::mt19937 random(2);
    for (int level = zip::quickestLevel; level <= zip::smallestLevel; ++level) {
        zip::Compressor compressor(level);
        for (int round = 0; round < 20; ++round) {
            std::string content;
            zip::ByteBuffer stream;
            const std::size_t pieces = 1 + random() % 5;
            for (std::size_t piece = 1; piece <= pieces; ++piece) {
                const std::size_t size = 1 + random() % (1U << random() % 18);
                const std::string next =
                    random() % 3 == 0 ? randomBytes(random, size) : compressibleBytes(random, size);
                compressor.deflatePiece(bytesOf(next), piece == pieces, stream);
                content += next;
            }
            ASSERT_EQ(inflate(stream.bytes(), content.size()), content) << "level " << level;
        }
    }
}

TEST(Compressor, keeps_a_piece_that_does_not_shrink_close_to_its_size) {
    std::mt19937 random(3);
    const std::string content = randomBytes(random, 500000);
    zip::ByteBuffer stream;
    zip::Compressor(5).deflatePiece(bytesOf(content), true, stream);
    EXPECT_EQ(inflate(stream.bytes(), content.size()), content);
    EXPECT_LE(stream.size(), content.size() + 5 * 9);
}

TEST(Compressor, makes_a_whole_stream_only_if_it_is_shorter) {
    std::mt19937 random(4);
    zip::Compressor compressor(5);
    zip::ByteBuffer stream;
    for (const std::string& content : {std::string(), std::string("x"), randomBytes(random, 5000)})
        EXPECT_FALSE(compressor.deflateWhole(bytesOf(content), stream));
    EXPECT_EQ(stream.size(), 0U);
    const std::string content = compressibleBytes(random, 5000);
    EXPECT_TRUE(compressor.deflateWhole(bytesOf(content), stream));
    EXPECT_LT(stream.size(), content.size());
    EXPECT_EQ(inflate(stream.bytes(), content.size()), content);
}

TEST(Compressor, gets_smaller_from_level_to_level) {
    std::mt19937 random(5);
    const std::string content = compressibleBytes(random, 1000000);
    const auto sizeAt = [&](int level) {
        zip::ByteBuffer stream;
        EXPECT_TRUE(zip::Compressor(level).deflateWhole(bytesOf(content), stream));
        return stream.size();
    };
    EXPECT_GT(sizeAt(zip::quickestLevel), sizeAt(5));
    EXPECT_GT(sizeAt(5), sizeAt(zip::smallestLevel));
}

} // namespace
