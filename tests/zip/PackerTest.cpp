#include "zip/Packer.h"

#include "TestTree.h"
#include "tests/support/ExpectFails.h"
#include "zip/Compressor.h"
#include "zip/JobCutter.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
namespace fs = std::filesystem;

const zip::PackOptions verified{.threads = 2, .verify = true};

TEST(Pack, StoresWhatDoesNotShrink) {
    const TemporaryFolder folder;
    std::mt19937 random(22);
    // Marks that look like the seams between pieces.
    std::string content = randomBytes(random, zip::longestPiece + 100000);
    for (int count = 0; count < 5; ++count)
        content.replace(random() % (content.size() - 4), 4, std::string("\0\0\xff\xff", 4));
    writeFile(folder / "A.app/big", content);
    writeFile(folder / "A.app/small", content.substr(0, 1000));
    writeFile(folder / "A.app/zzz", "behind");
    ASSERT_TRUE(zip::pack(folder / "A.zip", folder / "A.app", verified));
    const ShellResult listed = runInShell("unzip -v " + shellQuoted(folder / "A.zip"));
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(listed.output.find("Defl"), std::string::npos) << listed.output;
    EXPECT_LT(fs::file_size(folder / "A.zip"), content.size() + 2500);
    // Half of it shrinks a lot: one stream, though it has pieces that do not shrink.
    writeFile(folder / "A.app/big", content + std::string(content.size(), 'x'));
    ASSERT_TRUE(zip::pack(folder / "A.zip", folder / "A.app", verified));
    EXPECT_LT(fs::file_size(folder / "A.zip"), content.size() + 100000);
    EXPECT_EQ(runInShell("unzip -tqq " + shellQuoted(folder / "A.zip")).status, 0);
}

TEST(Pack, ReadsBackAStoredBlockThatLooksLikeTheEndOfAPiece) {
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

TEST(Pack, FailsWhenAFileOrLinkChangesAfterTheListing) {
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
        const auto exchange = [&, &change = command](std::uint64_t, std::uint64_t) {
            if (!std::exchange(done, true)) {
                EXPECT_EQ(
                    runInShell("cd " + shellQuoted(folder / "A.app") + " && " + change).status, 0);
            }
        };
        auto packed =
            zip::pack(folder / "A.zip", folder / "A.app", {.threads = 1, .progress = exchange});
        EXPECT_FAILS(packed, Changed) << name;
        EXPECT_THAT(namesIn(folder.path()), ElementsAre("A.app", "A.zip")) << name;
        EXPECT_EQ(contentOf(folder / "A.zip"), "an earlier archive");
    }
}

} // namespace
