#include "zip/PackageTree.h"

#include "TestTree.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
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

TEST(ListPackage, refuses_what_is_not_a_folder_and_says_why) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "Real.app");
    fs::create_directory_symlink("Real.app", folder / "Link.app");
    writeFile(folder / "file", "");
    for (const char* form : {"Link.app", "Link.app/"}) {
        auto link = zip::listPackage(folder / form);
        ASSERT_FALSE(link);
        EXPECT_THAT(link.error().sentence, HasSubstr("symbolic link to Real.app"));
    }
    auto file = zip::listPackage(folder / "file");
    ASSERT_FALSE(file);
    EXPECT_THAT(file.error().sentence,
                AllOf(HasSubstr(folder / "file"), HasSubstr("not a folder")));
    auto missing = zip::listPackage(folder / "missing");
    ASSERT_FALSE(missing);
    EXPECT_THAT(missing.error().sentence, HasSubstr(folder / "missing"));
    EXPECT_FALSE(zip::listPackage(""));
    EXPECT_FALSE(zip::listPackage("/"));
}

TEST(ListPackage, refuses_pipes_and_sockets_by_name) {
    const TemporaryFolder folder;
    fs::create_directories(folder / "A.app/sub");
    ASSERT_EQ(::mkfifo((folder / "A.app/sub/pipe").c_str(), 0600), 0);
    auto withPipe = zip::listPackage(folder / "A.app");
    ASSERT_FALSE(withPipe);
    EXPECT_THAT(withPipe.error().sentence, AllOf(HasSubstr("A.app/sub/pipe"), HasSubstr("a pipe")));
    fs::remove(folder / "A.app/sub/pipe");

    const std::string path = folder / "A.app/socket";
    ASSERT_EQ(runInShell("python3 -c 'import socket, sys;"
                         " socket.socket(socket.AF_UNIX).bind(sys.argv[1])' " +
                         shellQuoted(path))
                  .status,
              0);
    auto withSocket = zip::listPackage(folder / "A.app");
    ASSERT_FALSE(withSocket);
    EXPECT_THAT(withSocket.error().sentence, AllOf(HasSubstr(path), HasSubstr("a socket")));
}

} // namespace
