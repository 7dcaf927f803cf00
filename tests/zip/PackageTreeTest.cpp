#include "zip/PackageTree.h"

#include "TestTree.h"

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

TEST(ListPackage, lists_folders_files_and_links_sorted_by_bytes) {
    const TemporaryFolder folder;
    writeFile(folder / "A.app/b/inside", "12345");
    writeFile(folder / "A.app/b-file", "");
    fs::create_directory(folder / "A.app/empty");
    fs::create_directory_symlink("b", folder / "A.app/link");
    auto tree = zip::listPackage(folder / "A.app");
    ASSERT_TRUE(tree);
    EXPECT_THAT(namesOf(*tree), ElementsAre("A.app/", "A.app/b-file", "A.app/b/", "A.app/b/inside",
                                            "A.app/empty/", "A.app/link"));
    EXPECT_EQ(tree->entries.back().type, zip::EntryType::Link);
    EXPECT_EQ(contentSize(tree->entries), 6U);
}

TEST(ListPackage, names_the_package_as_its_folder_is_named) {
    const TemporaryFolder folder;
    fs::create_directories(folder / "A.app/sub");
    for (const char* form : {"A.app", "A.app/", "A.app///", "A.app/.", "A.app/sub/.."}) {
        auto tree = zip::listPackage(folder / form);
        ASSERT_TRUE(tree) << form;
        EXPECT_THAT(namesOf(*tree), ElementsAre("A.app/", "A.app/sub/")) << form;
    }
}

} // namespace
