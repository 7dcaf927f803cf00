#include "zip/PackageTree.h"

#include "TestTree.h"
#include "tests/support/ExpectFails.h"
#include "zip/ListingCheck.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
namespace fs = std::filesystem;

std::vector<std::string> namesOf(const zip::PackageTree& tree) {
    std::vector<std::string> names;
    for (const zip::Entry& entry : tree.entries)
        names.push_back(entry.name);
    return names;
}

TEST(ListPackage, NamesThePackageAsItsFolderIsNamed) {
    const TemporaryFolder folder;
    fs::create_directories(folder / "A.app/sub");
    for (const char* form : {"A.app", "A.app/", "A.app///", "A.app/.", "A.app/sub/.."}) {
        auto tree = zip::listPackage(folder / form, 1);
        ASSERT_TRUE(tree) << form;
        EXPECT_THAT(namesOf(*tree), ElementsAre("A.app/", "A.app/sub/")) << form;
    }
}

TEST(ListPackage, FindsOnSeveralThreadsWhatOneFinds) {
    const TemporaryFolder folder;
    ASSERT_EQ(runInShell("cd " + shellQuoted(folder.path()) +
                         " && for at in $(seq 100); do mkdir -p A.app/$at/sub; "
                         "echo > A.app/$at/sub/file; ln -s sub A.app/$at/link; done")
                  .status,
              0);
    auto one = zip::listPackage(folder / "A.app", 1);
    auto four = zip::listPackage(folder / "A.app", 4);
    ASSERT_TRUE(one && four);
    EXPECT_EQ(one->entries.size(), 401);
    EXPECT_EQ(namesOf(*four), namesOf(*one));
    ASSERT_EQ(runInShell("mkfifo " + shellQuoted(folder / "A.app/50/sub/pipe")).status, 0);
    EXPECT_FAILS(zip::listPackage(folder / "A.app", 4), Unsupported);
}

/// `earlier` as if its folders and the package itself had the states that they have now.
zip::PackageTree withStatesOfNow(zip::PackageTree earlier, const zip::PackageTree& now) {
    for (zip::Entry& entry : earlier.entries)
        for (const zip::Entry& other : now.entries)
            if (other.name == entry.name && entry.type == zip::EntryType::Folder)
                entry.state = other.state;
    return earlier;
}

TEST(CheckListing, FailsUnlessNamesAndKindsAreAsBefore) {
    for (const char* change :
         {"mv file filf", "echo > zzz", "echo > aaa", "rm file", "rm file && mkdir file",
          "rm file && ln -s other file", "rm -r sub && echo > sub", "rm sub/deep && rmdir sub",
          "echo > sub/more", "mv sub/deep sub/deeq", "ln -sfn deeq sub/deep", "rm sub/deep",
          "rm sub/deep && echo > sub/deep"}) {
        const TemporaryFolder folder;
        fs::create_directories(folder / "A.app/sub");
        writeFile(folder / "A.app/file", "content");
        writeFile(folder / "A.app/sub.txt", "stands before what sub holds");
        writeFile(folder / "A.app/zebra", "stands after it");
        fs::create_symlink("deep", folder / "A.app/sub/deep");
        auto earlier = zip::listPackage(folder / "A.app", 1);
        ASSERT_TRUE(earlier);
        EXPECT_TRUE(zip::checkListing(*earlier, 1));
        ASSERT_EQ(runInShell("cd " + shellQuoted(folder / "A.app") + " && " + change).status, 0);
        EXPECT_FAILS(zip::checkListing(*earlier, 1), Changed) << change;
        auto now = zip::listPackage(folder / "A.app", 1);
        ASSERT_TRUE(now);
        EXPECT_FAILS(zip::checkListing(withStatesOfNow(*std::move(earlier), *now), 1), Changed)
            << change;
    }
}

TEST(CheckListing, FailsIfAnotherPackageOrFolderHasTakenThePlace) {
    for (const char* change :
         {"mv A.app B.app && cp -a B.app A.app", "mv A.app B.app && ln -s B.app A.app",
          "mv A.app/sub B && cp -a B A.app/sub && touch -r B A.app", "chmod 700 A.app/sub",
          "mv ../in ../moved && cp -a ../moved ../in"}) {
        const TemporaryFolder folder;
        fs::create_directories(folder / "in/A.app/sub");
        auto earlier = zip::listPackage(folder / "in/A.app", 1);
        ASSERT_TRUE(earlier);
        ASSERT_EQ(runInShell("cd " + shellQuoted(folder / "in") + " && " + change).status, 0);
        EXPECT_FAILS(zip::checkListing(*earlier, 1), Changed) << change;
    }
}

} // namespace
