#include "core/Path.h"

#include "core/FileUrl.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

TEST(Path, IsTakenApartByItsComponents) {
    EXPECT_EQ(lastPathComponent("/A/X.app/"), "X.app");
    EXPECT_EQ(lastPathComponent("/"), "/");
    EXPECT_EQ(deletingLastPathComponent("/A/X.app/"), "/A");
    EXPECT_EQ(deletingLastPathComponent("/A"), "/");
    EXPECT_EQ(deletingLastPathComponent("A"), "");
    EXPECT_EQ(pathExtension("/a.b/Tool.APP/"), "APP");
    EXPECT_EQ(pathExtension("/a.b/Tool"), "");
    EXPECT_EQ(pathExtension("/a/.app"), "") << "a hidden name is no extension";
    EXPECT_TRUE(hasAppExtension("x.aPp"));
    EXPECT_FALSE(hasAppExtension("app"));
}

TEST(StandardizedPath, ExpandsTheTildeAndResolvesSteps) {
    const ScopedEnvironment home("HOME", "/home/of me");
    EXPECT_EQ(standardizedPath("~/Desktop/x"), "/home/of me/Desktop/x");
    EXPECT_EQ(standardizedPath("~"), "/home/of me");
    EXPECT_EQ(standardizedPath("~nobody-of-that-name/x"), "~nobody-of-that-name/x");
    EXPECT_EQ(standardizedPath("//nowhere/./a//b/../c/"), "/nowhere/a/c");
    EXPECT_EQ(standardizedPath("/.."), "/");
    EXPECT_EQ(standardizedPath("../a/../../b"), "../../b");
    EXPECT_EQ(standardizedPath(""), "");
}

TEST(StandardizedPath, StepsUpFromWhereALinkLeads) {
    const TemporaryFolder folder;
    folder.makeFolder("real/inner");
    folder.makeLink("link", "real/inner");
    EXPECT_EQ(standardizedPath(folder.path("link/../x")), folder.path("real/x"));
}

TEST(FileUrl, OfAFolderEqualsTheParentOfItsEntries) {
    const TemporaryFolder folder;
    const std::string package = folder.makeFolder("X.app");
    const FileUrl parent = FileUrl::fileURLWithPath(package).deletingLastPathComponent();
    EXPECT_EQ(parent, FileUrl::fileURLWithPath(folder.path()));
    EXPECT_EQ(parent, FileUrl::fileURLWithPath(folder.path() + "/"));
    EXPECT_NE(FileUrl("/A", false), FileUrl("/A", true));
    EXPECT_EQ(FileUrl("/A b/\xC3\xBC%.app", true).absoluteString(), "file:///A%20b/%C3%BC%25.app/");
    EXPECT_EQ(FileUrl("/A", true).deletingLastPathComponent().absoluteString(), "file:///");
}

TEST(FileUrl, OfARelativePathCountsFromTheCurrentFolder) {
    EXPECT_EQ(FileUrl::fileURLWithPath("nowhere/x").path(),
              std::filesystem::current_path().string() + "/nowhere/x");
}
