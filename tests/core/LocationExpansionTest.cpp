#include "core/LocationExpansion.h"

#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

namespace {

const Caller caller{"Tester", "<Tester>"};
constexpr const char* nothingFound =
    "BOOOOOO .. something went wrong.......Should never be empty?????....";
constexpr const char* parentIsSelected = "parent url is part of orignal selection....";

/// A holds X.app, Y.APP, notes.txt, a hidden and a dangling package, and B with a package in it.
struct LocationExpansion : testing::Test {
    LocationExpansion() {
        for (const char* package : {"A/X.app", "A/Y.APP", "A/B/Deep.app", "A/.Hidden.app"})
            folder.makeFolder(package);
        folder.makeFile("A/notes.txt");
        folder.makeLink("A/Dangling.app", "nowhere");
    }
    [[nodiscard]] FileUrl url(const std::string& name) const {
        return FileUrl::fileURLWithPath(folder.path(name));
    }

    TemporaryFolder folder;
    LogCapture log;
};

} // namespace

TEST_F(LocationExpansion, GivesNoneForNothing) {
    LocationList empty;
    EXPECT_EQ(validItemsFromUrls(caller, empty), std::nullopt);
    EXPECT_THAT(log.messages(), ElementsAre("Inside Tester => validItemsFromUrls:..."));
}

TEST_F(LocationExpansion, LetsAPackageStandForItself) {
    LocationList items = {url("A/X.app")};
    EXPECT_THAT(validItemsFromUrls(caller, items), Optional(ElementsAre(folder.path("A/X.app"))));
    EXPECT_THAT(items, ElementsAre(LocationItem(FileUrl(folder.path("A/X.app"), true))));
    EXPECT_THAT(
        log.messages(),
        ElementsAre("\n", "\n",
                    "starting urls(1) = (\n    \"" + url("A/X.app").absoluteString() + "\"\n)",
                    "\n", "\n",
                    "Inside Tester => validItemsFromUrls:...final mAdjustedUrlSet = {(\n"
                    "    \"" +
                        url("A/X.app").absoluteString() + "\"\n)}",
                    "Inside Tester => validItemsFromUrls:...final            mSet = {(\n"
                    "    \"" +
                        folder.path("A/X.app") + "\"\n)}"));
}

TEST_F(LocationExpansion, LetsAFolderStandForThePackagesDirectlyInIt) {
    LocationList items = {url("A")};
    EXPECT_THAT(validItemsFromUrls(caller, items),
                Optional(ElementsAre(folder.path("A/X.app"), folder.path("A/Y.APP"))));
    EXPECT_THAT(items, ElementsAre(LocationItem(url("A"))));
    EXPECT_EQ(log.count(parentIsSelected), 2);
    EXPECT_EQ(log.count("=============="), 2 * 5) << "twice for each entry that is not hidden";
}

TEST_F(LocationExpansion, FoldsAPackageIntoItsSelectedFolder) {
    LocationList items = {url("A/X.app"), url("A"), OtherItem{"7"}, url("A/B/Deep.app")};
    EXPECT_THAT(validItemsFromUrls(caller, items),
                Optional(ElementsAre(folder.path("A/X.app"), folder.path("A/Y.APP"),
                                     folder.path("A/B/Deep.app"))));
    EXPECT_THAT(items, ElementsAre(LocationItem(url("A")), LocationItem(url("A/B/Deep.app"))));
}

TEST_F(LocationExpansion, LeavesASelectionWithoutPackagesAsItWas) {
    folder.makeFolder("Empty");
    const LocationList before = {url("Empty"), folder.path("A/notes.txt"), folder.path("missing")};
    LocationList items = before;
    EXPECT_THAT(validItemsFromUrls(caller, items), Optional(IsEmpty()));
    EXPECT_EQ(items, before);
    EXPECT_EQ(log.count(nothingFound), 1);
}

TEST_F(LocationExpansion, MatchesNoPathStringWithAParent) {
    LocationList items = {folder.path("A"), folder.path("A/X.app")};
    EXPECT_THAT(validItemsFromUrls(caller, items),
                Optional(ElementsAre(folder.path("A/X.app"), folder.path("A/Y.APP"))));
    EXPECT_THAT(items, ElementsAre(LocationItem(url("A/X.app"))));
    EXPECT_EQ(log.count(parentIsSelected), 0);
}

TEST_F(LocationExpansion, NeverRewritesAnImmutableList) {
    const LocationList items = {url("A/X.app"), url("A")};
    EXPECT_THAT(validItemsFromUrls(caller, items),
                Optional(ElementsAre(folder.path("A/X.app"), folder.path("A/Y.APP"))));
    const LocationList nothing = {url("A/B")};
    EXPECT_TRUE(validItemsFromUrls(caller, nothing).has_value());
    EXPECT_EQ(log.count(nothingFound), 0);
}

TEST_F(LocationExpansion, CountsPackagesByNameInSixteenBits) {
    LocationList items = {folder.makeFile("File.app"), folder.path("A")};
    EXPECT_EQ(checkTotalItems(caller, items), 3);
    LocationList spellings;
    for (int i = 0; i < 0x8000; ++i)
        spellings.emplace_back(folder.path("A") + std::string(std::size_t(i % 181) + 1, '/') +
                               std::string(std::size_t(i / 181) + 1, '/').replace(0, 0, "./") +
                               "X.app");
    EXPECT_EQ(checkTotalItems(caller, spellings), -0x8000);
    LocationList empty;
    EXPECT_EQ(checkTotalItems(caller, empty), 0);
}

TEST_F(LocationExpansion, AdmitsExactlyFoldersAndWellFormedApplications) {
    for (const LocationItem& good : {LocationItem(folder.path("A")), LocationItem(url("A")),
                                     LocationItem(folder.makeApplication("Good.app")),
                                     LocationItem(folder.makeLink("link to A", "A"))})
        EXPECT_TRUE(validUrlToAdd(good)) << formatted("%@", good);
    for (const LocationItem& bad :
         {LocationItem(folder.makeFile("File.app")), LocationItem(folder.makeFolder("P.framework")),
          LocationItem(folder.path("missing")), LocationItem("/"), LocationItem(OtherItem{"7"}),
#ifndef __APPLE__ // where the system decides what is well formed
          LocationItem(folder.path("A/X.app")),
#endif
          LocationItem(folder.path("A/notes.txt"))})
        EXPECT_FALSE(validUrlToAdd(bad)) << formatted("%@", bad);
}
