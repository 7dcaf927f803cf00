#include "zip/Packer.h"

#include "TestTree.h"
#include "zip/Compressor.h"
#include "zip/JobCutter.h"

#include <algorithm>

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

const zip::PackOptions verified{.threads = 2, .verify = true};

TEST(Pack, makes_the_same_archive_with_any_number_of_threads) {
    std::mt19937 random(20);
    for (std::size_t round = 0; round < 12; ++round) {
        const TemporaryFolder folder;
        const std::string package = folder / "Random.app";
        writeRandomPackage(package, random);
        if (round % 4 == 0)
            writeFile(package + "/big", compressibleBytes(random, 2 * zip::longestPiece + round));
        auto one = zip::pack(folder / "1.zip", package, {.threads = 1, .verify = true});
        ASSERT_TRUE(one) << one.error().sentence;
        const std::string expected = contentOf(folder / "1.zip");
        for (const unsigned threads : {2U, 7U}) {
            ASSERT_TRUE(zip::pack(folder / "n.zip", package, {.threads = threads}));
            EXPECT_TRUE(contentOf(folder / "n.zip") == expected) << threads << ", round " << round;
        }
        const ShellResult unpacked =
            runInShell("cd " + shellQuoted(folder / "") +
                       " && mkdir out && unzip -qq n.zip -d out &&"
                       " diff -r --no-dereference Random.app out/Random.app && unzip -tqq n.zip");
        EXPECT_EQ(unpacked.status, 0) << unpacked.output;
        ASSERT_EQ(runInShell("chmod -R u+w " + shellQuoted(folder / "")).status, 0);
    }
}

TEST(Pack, stores_what_does_not_shrink) {
    const TemporaryFolder folder;
    std::mt19937 random(22);
    // Marks that look like the seams between pieces.
    std::string content = randomBytes(random, zip::longestPiece + 100000);
    for (int count = 0; count < 5; ++count)
        content.replace(random() % (content.size() - 4), 4, std::string("\0\0\xff\xff", 4));
    writeFile(folder / "A.app/big", content);
    writeFile(folder / "A.app/small", content.substr(0, 1000));
    writeFile(folder / "A.app/zzz", "behind");
    auto packed = zip::pack(folder / "A.zip", folder / "A.app", verified);
    ASSERT_TRUE(packed) << packed.error().sentence;
    const ShellResult listed = runInShell("unzip -v " + shellQuoted(folder / "A.zip"));
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(listed.output.find("Defl"), std::string::npos) << listed.output;
    EXPECT_LT(fs::file_size(folder / "A.zip"), content.size() + 2500);
    // Half of it shrinks a lot: one stream, though it has pieces that do not shrink.
    writeFile(folder / "A.app/big", content + std::string(content.size(), 'x'));
    packed = zip::pack(folder / "A.zip", folder / "A.app", verified);
    ASSERT_TRUE(packed) << packed.error().sentence;
    EXPECT_LT(fs::file_size(folder / "A.zip"), content.size() + 100000);
    EXPECT_EQ(runInShell("unzip -tqq " + shellQuoted(folder / "A.zip")).status, 0);
}

TEST(Pack, reads_back_a_stored_block_that_looks_like_the_end_of_a_piece) {
    const TemporaryFolder folder;
    std::mt19937 random(23);
    // The first stored block ends in the mark; what follows refers back over it.
    const std::string noise = randomBytes(random, 65531) + std::string("\0\0\xff\xff", 4);
    std::string content = noise + randomBytes(random, 5000);
    while (content.size() < 2 * zip::longestPiece)
        content += noise.substr(noise.size() - 300 - random() % 3000, 299);
    writeFile(folder / "A.app/big", content);
    for (const int level : {zip::quickestLevel, zip::smallestLevel})
        EXPECT_TRUE(zip::pack(folder / "A.zip", folder / "A.app",
                              {.level = level, .threads = 2, .verify = true}));
}

TEST(Pack, fails_when_a_file_or_link_changes_after_the_listing) {
    const std::vector<std::pair<const char*, std::string>> exchanges{
        {"rewritten", "printf 12 > victim"},
        {"grown while it is read", "printf 1 >> a"},
        {"same length", "cp -p victim other && mv other victim"},
        {"removed", "rm victim"},
        {"made a link", "mv victim other && ln -s other victim"},
        {"made a pipe", "rm victim && mkfifo victim"},
        {"link retargeted", "ln -sfn longer link"},
        {"link made a file", "rm link && echo > link"}};
    for (const auto& [name, command] : exchanges) {
        const TemporaryFolder folder;
        // Two pieces: the first job is written, and so tells progress, before the last is read.
        writeSparseFile(folder / "A.app/a", zip::longestPiece + 1);
        writeFile(folder / "A.app/victim", "123");
        fs::create_symlink("short", folder / "A.app/link");
        writeFile(folder / "A.zip", "an earlier archive");
        bool done = false;
        const auto exchange = [&, &command = command](std::uint64_t, std::uint64_t) {
            if (!std::exchange(done, true)) {
                EXPECT_EQ(
                    runInShell("cd " + shellQuoted(folder / "A.app") + " && " + command).status, 0);
            }
        };
        auto packed =
            zip::pack(folder / "A.zip", folder / "A.app", {.threads = 1, .progress = exchange});
        ASSERT_FALSE(packed) << name;
        EXPECT_THAT(packed.error().sentence, HasSubstr(folder / "A.app/")) << name;
        EXPECT_THAT(namesIn(folder.path()), ElementsAre("A.app", "A.zip")) << name;
        EXPECT_EQ(contentOf(folder / "A.zip"), "an earlier archive");
    }
}

TEST(Pack, tells_its_progress_up_to_the_end) {
    const TemporaryFolder folder;
    writeSparseFile(folder / "A.app/big", 5 * zip::longestPiece);
    writeFile(folder / "A.app/small", "1");
    std::vector<std::uint64_t> told;
    const auto progress = [&](std::uint64_t done, std::uint64_t total) {
        EXPECT_EQ(total, 2 * (5 * zip::longestPiece + 1));
        told.push_back(done);
    };
    ASSERT_TRUE(zip::pack(folder / "A.zip", folder / "A.app",
                          {.threads = 2, .verify = true, .progress = progress}));
    EXPECT_GT(told.size(), 5U);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(told.back(), 2 * (5 * zip::longestPiece + 1));
}

} // namespace
