#include "RoundTrip.h"
#include "tests/zip/TestTree.h"

#include <functional>
#include <map>

#include <gtest/gtest.h>

namespace {

using base::bytesOf;
using zip::Effort;

std::string withPeriod(std::size_t period, std::size_t size) {
    std::string content(size, '\0');
    for (std::size_t at = 0; at < size; ++at)
        content[at] = static_cast<char>('a' + at % period);
    return content;
}

/// The same bytes again after `distance`, with noise between, which cannot match.
std::string repeatedAfter(std::size_t distance, std::mt19937& random) {
    std::string content = randomBytes(random, distance);
    return content + content.substr(0, std::min<std::size_t>(distance, 400));
}

/// Parts of all kinds, each copied from anywhere before or made anew.
std::string mixture(std::mt19937& random, std::size_t size) {
    std::string content;
    while (content.size() < size) {
        const std::size_t part = 1 + random() % (random() % 3 == 0 ? 3000 : 30);
        switch (random() % 5) {
        case 0:
            content += randomBytes(random, part);
            break;
        case 1:
            content.append(part, static_cast<char>(random() % 4));
            break;
        case 2:
            content += withPeriod(1 + random() % 9, part);
            break;
        default:
            for (std::size_t distance = 1 + random() % (random() % 2 == 0 ? 40000 : 50),
                             left = part;
                 left > 0 && distance <= content.size(); --left)
                content += content[content.size() - distance];
        }
    }
    content.resize(size);
    return content;
}

/// Counts like Fibonacci numbers ask for codes longer than there may be.
std::string withLongCodes(std::mt19937& random) {
    std::string content;
    for (std::size_t symbol = 0, a = 1, b = 1; symbol < 25; ++symbol, a = std::exchange(b, a + b))
        content.append(a, static_cast<char>('A' + symbol));
    std::shuffle(content.begin(), content.end(), random);
    return content;
}

struct Destroy {
    void operator()(zip::Encoder* encoder) const {
        encoder->~Encoder();
        ::operator delete(encoder, std::align_val_t(alignof(zip::Encoder)));
    }
};

/// An encoder whose memory holds the word everywhere until it is set.
std::unique_ptr<zip::Encoder, Destroy> encoderInMemoryOf(std::uint32_t word, Effort effort) {
    void* const memory =
        ::operator new(sizeof(zip::Encoder), std::align_val_t(alignof(zip::Encoder)));
    // Otherwise the compiler leaves out what a constructor may overwrite.
    auto* const words = static_cast<volatile std::uint32_t*>(memory);
    for (std::size_t index = 0; index < sizeof(zip::Encoder) / sizeof word; ++index)
        words[index] = word;
    return std::unique_ptr<zip::Encoder, Destroy>(new (memory) zip::Encoder(effort));
}

class EncoderTest : public testing::TestWithParam<Effort> {
protected:
    void expectBack(const std::string& content, const std::string& what) {
        for (const bool isLast : {true, false})
            EXPECT_EQ(faultOfRoundTrip(*encoder_, bytesOf(content), isLast), "")
                << what << ", " << content.size() << " bytes";
    }

    std::unique_ptr<zip::Encoder> encoder_ = std::make_unique<zip::Encoder>(GetParam());
    std::mt19937 random_{5};
};

INSTANTIATE_TEST_SUITE_P(Efforts, EncoderTest, testing::Values(Effort::Quick, Effort::Usual));

TEST_P(EncoderTest, GivesBackShortContentOfAnyLengthAndKind) {
    for (std::size_t size = 0; size <= 600; ++size) {
        expectBack(randomBytes(random_, size), "noise");
        expectBack(mixture(random_, size), "mixture");
        expectBack(withPeriod(1 + size % 9, size), "period");
    }
}

TEST_P(EncoderTest, GivesBackContentThatEndsAroundAChunk) {
    for (const std::size_t chunks : {1U, 2U, 3U}) {
        const std::string whole = mixture(random_, chunks * zip::chunkSize + 300);
        for (std::size_t size = chunks * zip::chunkSize - 300; size <= whole.size(); ++size)
            expectBack(size % 2 == 0 ? whole.substr(0, size) : withPeriod(1 + size % 9, size),
                       "mixture or period");
    }
    // Where stored blocks are longest, and around the longest block.
    for (const std::size_t chunks : {4U, 31U, 32U, 33U, 64U})
        for (int round = 0; round < 6; ++round) {
            const std::size_t size = chunks * zip::chunkSize - 300 + random_() % 600;
            expectBack(round == 0 ? randomBytes(random_, size) : mixture(random_, size), "mixture");
        }
}

TEST_P(EncoderTest, GivesBackRunsFarMatchesNoiseAndLongCodes) {
    for (std::size_t period = 1; period <= 9; ++period)
        expectBack(withPeriod(period, 200000), "period");
    for (std::size_t distance = 32768 - 20; distance <= 32768 + 20; ++distance)
        expectBack(repeatedAfter(distance, random_), "far match");
    // A match that would start in the zeros before the content.
    for (const std::size_t size : {50U, 5000U, 20000U}) {
        const std::string start = randomBytes(random_, size);
        expectBack(start + std::string(1 + size % 7, '\0') + start, "early match");
    }
    expectBack(std::string(3000000, '\0'), "zeros");
    // Whole chunks, and a little more of any length.
    for (std::size_t more = 1; more <= zip::longestMatch; ++more) {
        expectBack(std::string(2 * zip::chunkSize + more, '\0'), "run");
        expectBack(randomBytes(random_, more) +
                       std::string(2 * zip::chunkSize + more % 4 - more, '\0') +
                       randomBytes(random_, 5),
                   "run between noise");
    }
    expectBack(randomBytes(random_, 1000000), "noise");
    expectBack(withLongCodes(random_), "long codes");
    expectBack(compressibleBytes(random_, 3000000), "many blocks");
    for (int round = 0; round < 50; ++round)
        expectBack(mixture(random_, 1 + random_() % 200000), "mixture");
}

TEST_P(EncoderTest, StaysAsCloseToTheSizeOfNoiseAsItSays) {
    for (const std::size_t size : {1U, 65535U, 65536U, 700000U}) {
        const std::string stream = encoded(*encoder_, bytesOf(randomBytes(random_, size)), false);
        EXPECT_GT(stream.size(), size);
        EXPECT_LE(stream.size() + zip::BitWriter::slack, zip::Encoder::mostBytes(size));
    }
}

TEST_P(EncoderTest, MakesTheSameOfTheSameContentWhateverItEncodedBefore) {
    std::vector<std::string> contents{mixture(random_, 20000), mixture(random_, 100),
                                      compressibleBytes(random_, 70000)};
    // Its end is in two places before; in one of them zeros follow, as behind the content.
    for (const std::size_t size : {20U, 21U})
        contents.push_back(std::string("abc\0\0\0", 6) + std::string(size, 'x') + "abcde" +
                           std::string(20, 'y') + "abc");
    std::vector<std::string> fresh;
    for (const std::string& content : contents)
        fresh.push_back(encoded(*std::make_unique<zip::Encoder>(GetParam()), bytesOf(content)));
    zip::PaddedContent padded;
    for (int round = 0; round < 30; ++round) {
        padded.assign(bytesOf(mixture(random_, 1 + random_() % 300000)));
        (void)encoded(*encoder_, padded);
        const std::size_t index = random_() % contents.size();
        padded.assign(bytesOf(contents[index]));
        EXPECT_EQ(encoded(*encoder_, padded), fresh[index]) << index;
    }
    // Costs like the first of these become small ones when the price of no match is added.
    for (const std::uint32_t word : {0xFF000000, 0xFFFFFFFF, 0xAAAAAAAA}) {
        const auto encoder = encoderInMemoryOf(word, GetParam());
        for (std::size_t index = 0; index < contents.size(); ++index)
            EXPECT_EQ(encoded(*encoder, bytesOf(contents[index])), fresh[index]) << word;
    }
}

} // namespace
