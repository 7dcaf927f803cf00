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
        auto tree = zip::listPackage(folder / form);
        ASSERT_TRUE(tree) << form;
        EXPECT_THAT(namesOf(*tree), ElementsAre("A.app/", "A.app/sub/")) << form;
    }
}

TEST(ListAgain, FailsUnlessNamesAndKindsAreAsBefore) {
    for (const char* change : {"mv file filf", "echo > zzz", "rm file", "rm file && mkdir file",
                               "rm file && ln -s other file", "rmdir sub && echo > sub"}) {
        const TemporaryFolder folder;
        fs::create_directories(folder / "A.app/sub");
        writeFile(folder / "A.app/file", "content");
        auto earlier = zip::listPackage(folder / "A.app");
        ASSERT_TRUE(earlier);
        EXPECT_TRUE(zip::listAgain(folder / "A.app", *earlier));
        ASSERT_EQ(runInShell("cd " + shellQuoted(folder / "A.app") + " && " + change).status, 0);
        EXPECT_FAILS(zip::listAgain(folder / "A.app", *earlier), Changed) << change;
    }
}

} // namespace
