#include "zip/Compressor.h"

#include "TestTree.h"

#include <gtest/gtest.h>
#include <libdeflate.h>

namespace {

std::uint32_t crc32Of(std::string_view text) {
    return libdeflate_crc32(0, text.data(), text.size());
}

TEST(Crc32, of_joined_pieces_is_that_of_the_whole) {
    std::mt19937 random(1);
    const std::string content = randomBytes(random, 70000);
    const std::string_view whole = content;
    for (const std::size_t cut : {0U, 1U, 2U, 255U, 4096U, 69999U, 70000U})
        EXPECT_EQ(zip::crc32OfJoined(crc32Of(whole.substr(0, cut)), crc32Of(whole.substr(cut)),
                                     whole.size() - cut),
                  crc32Of(whole))
            << cut;
}

TEST(Crc32, takes_lengths_beyond_four_gigabytes) {
    // A run of 2^33 zeros, doubled up from one.
    std::uint32_t zeros = crc32Of(std::string_view("\0", 1));
    for (unsigned doubling = 0; doubling < 33; ++doubling)
        zeros = zip::crc32OfJoined(zeros, zeros, std::uint64_t{1} << doubling);
    // As another program found.
    EXPECT_EQ(zeros, 0x41D912FFU);
}

} // namespace
