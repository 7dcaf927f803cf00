#include "zip/Verifier.h"

#include "TestTree.h"
#include "tests/support/ExpectFails.h"
#include "tests/support/PackedArchive.h"

#include <gmock/gmock.h>

namespace {

namespace fs = std::filesystem;

class Verify : public testing::Test {
protected:
    void SetUp() override {
        std::mt19937 random(30);
        writeFile(package_ + "/text", compressibleBytes(random, 300));
        writeFile(package_ + "/random", randomBytes(random, 50));
        fs::create_directory(package_ + "/folder");
        fs::create_symlink("text", package_ + "/link");
    }

    void pack() {
        listed_ = zip::listPackage(package_, 1);
        pieceEnds_ = packed(archive_, package_, fixedTime_);
    }

    base::Outcome verify(const zip::PackageTree* listed = nullptr) {
        const auto opened = base::FileDescriptor::openAt(AT_FDCWD, archive_.c_str(), O_RDONLY);
        return zip::verify(opened.get(), archive_, package_, {2, fixedTime_, pieceEnds_, listed});
    }

    TemporaryFolder folder_;
    std::string package_ = folder_ / "A.app";
    std::string archive_ = folder_ / "A.zip";
    std::optional<std::int64_t> fixedTime_;
    std::vector<zip::PieceEnd> pieceEnds_;
    base::Result<zip::PackageTree> listed_ = zip::PackageTree();
};

TEST_F(Verify, NoticesEveryDifferenceInTheFolder) {
    const std::vector<std::string> changes{
        "printf x >> text", "chmod 700 text", "touch -t 200101010000 text", "rm text",
        "echo > more", "mkdir folder/more", "rmdir folder", "ln -sfn texT link",
        "touch -h -t 200101010000 link", "rm text && mkdir text", "touch -t 200101010000 folder",
        "touch -r . ../time && mv text texu && touch -r ../time .",
        // The same length and time, one byte different.
        "touch -r text ../time && printf z | dd of=text bs=1 seek=7 conv=notrunc && touch -r "
        "../time text"};
    for (const std::string& change : changes) {
        pack();
        ASSERT_TRUE(verify());
        ASSERT_TRUE(verify(&*listed_));
        ASSERT_EQ(runInShell("cd " + shellQuoted(package_) + " && " + change).status, 0);
        EXPECT_FAILS(verify(), Changed) << change;
        EXPECT_FAILS(verify(&*listed_), Changed) << change;
        fs::remove_all(package_);
        SetUp();
    }
}

TEST_F(Verify, AcceptsAChangedStateWhenTheArchiveHoldsTheSame) {
    pack();
    for (const char* change : {"ln text ../other", "chmod 700 text && chmod 644 text"}) {
        ASSERT_EQ(runInShell("cd " + shellQuoted(package_) + " && " + change).status, 0);
        EXPECT_TRUE(verify(&*listed_)) << change;
    }
}

TEST_F(Verify, NoticesAChangeInAnyByteOfTheArchive) {
    pack();
    const std::string whole = contentOf(archive_);
    const auto isUnnoticed = [&](std::string damaged, std::size_t at, std::size_t twin, int bits) {
        for (const std::size_t index : {at, twin})
            damaged[index] = static_cast<char>(whole[index] ^ bits);
        writeFile(archive_, damaged);
        return bool(verify());
    };
    std::vector<std::size_t> unnoticed;
    for (std::size_t index = 0; index < whole.size(); ++index)
        if (isUnnoticed(whole, index, index, 0x55))
            unnoticed.push_back(index);
    // What both headers say, from the version on: of the first entry the central one is the first.
    const std::size_t central = whole.find("PK\1\2");
    for (std::size_t index = 4; index < 26; ++index)
        for (const int bits : {1, 2, 8})
            if (isUnnoticed(whole, index, central + 2 + index, bits))
                unnoticed.push_back(index);
    const std::size_t flagsOfStamp = whole.find("UT\5") + 4;
    if (isUnnoticed(whole, flagsOfStamp, whole.find("UT\5", central) + 4, 2))
        unnoticed.push_back(flagsOfStamp);
    EXPECT_THAT(unnoticed, testing::IsEmpty());
}

TEST_F(Verify, NoticesAnArchiveThatIsCutOrContinued) {
    pack();
    const std::string whole = contentOf(archive_);
    for (std::size_t size = 0; size < whole.size(); size += 7) {
        writeFile(archive_, whole.substr(0, size));
        EXPECT_FAILS(verify(), Damaged) << size;
    }
    writeFile(archive_, whole + "x");
    EXPECT_FAILS(verify(), Damaged);
    writeFile(archive_, "x" + whole);
    EXPECT_FAILS(verify(), Damaged);
}

TEST_F(Verify, NoticesAChangeInEachPieceOfALongFile) {
    std::mt19937 random(31);
    writeFile(package_ + "/long", compressibleBytes(random, 3 * zip::longestPiece));
    pack();
    ASSERT_TRUE(verify());
    const std::string whole = contentOf(archive_);
    for (const std::size_t share : {1U, 3U, 5U}) {
        std::string damaged = whole;
        char& byte = damaged[damaged.size() * share / 6];
        byte = static_cast<char>(byte ^ 0x10);
        writeFile(archive_, damaged);
        EXPECT_FALSE(verify()) << share;
    }
}

TEST_F(Verify, ExpectsTheFixedTimeWhereOneWasGiven) {
    fixedTime_ = 315532800;
    pack();
    EXPECT_TRUE(verify());
    fixedTime_.reset();
    EXPECT_FAILS(verify(), Changed);
}

} // namespace
