#include "zip/PackageTree.h"

#include "TestTree.h"
#include "tests/support/ExpectFails.h"

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

TEST(ListAgain, FailsUnlessNamesAndKindsAreAsBefore) {
    for (const char* change : {"mv file filf", "echo > zzz", "rm file", "rm file && mkdir file",
                               "rm file && ln -s other file", "rmdir sub && echo > sub"}) {
        const TemporaryFolder folder;
        fs::create_directories(folder / "A.app/sub");
        writeFile(folder / "A.app/file", "content");
        auto earlier = zip::listPackage(folder / "A.app", 1);
        ASSERT_TRUE(earlier);
        EXPECT_TRUE(zip::listAgain(folder / "A.app", *earlier, 1));
        ASSERT_EQ(runInShell("cd " + shellQuoted(folder / "A.app") + " && " + change).status, 0);
        EXPECT_FAILS(zip::listAgain(folder / "A.app", *earlier, 1), Changed) << change;
    }
}

} // namespace
