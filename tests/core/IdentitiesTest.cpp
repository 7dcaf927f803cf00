#include "core/Identities.h"

#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const Caller caller{"Tester", "<Tester>"};

std::vector<std::string> shown(const IdentityList& list) {
    std::vector<std::string> names;
    for (const IdentityRecord& record : list)
        names.push_back(record.displaystring + '|' + record.identitystring + '|' + record.title);
    return names;
}

constexpr const char* doNotCodesign = "Do NOT Codesign|donotcodesign|donotcodesign";

/// The list that a stand-in for the keychain's tool printing `listing` leads to.
std::optional<IdentityList> identitiesListedAs(const std::string& listing) {
    const TemporaryFolder folder(TemporaryFolder::withoutBlank);
    const std::string tool = folder.makeExecutable(
        "security", "#!/bin/sh\n[ \"$*\" = 'find-identity -v -p codesigning' ] || exit 1\n"
                    "cat <<'END'\n" +
                        listing + "END\n");
    return codesigningIdentities(caller, ToolPaths{.security = tool, .awk = "awk"});
}

} // namespace

TEST(IdentityListing, IsAskedForWithTheExactCommand) {
    EXPECT_EQ(identityListingCommand({}),
              "/usr/bin/security find-identity -v -p codesigning | /usr/bin/awk -F '\"' "
              "'{print $2}' | awk -F ':' '{print$1\"$$\"$2}'");
}

TEST(IdentityListing, BecomesAListWithDoNotCodesignInFront) {
    const LogCapture log;
    const auto list = identitiesListedAs(
        "  1) 0123456789012345678901234567890123456789 \"Kind A: Holder One (X1)\"\n"
        "  2) 1123456789012345678901234567890123456789 \"iPhone Developer: Jo (Y2)\"\n"
        "  3) 2123456789012345678901234567890123456789 \"For iphone: Jo (Y3)\"\n"
        "  4) 3123456789012345678901234567890123456789 \"K: H: more\"\n"
        "  5) 4123456789012345678901234567890123456789 \"Alone\"\n"
        "  6) 0123456789012345678901234567890123456789 \"Kind A: Holder One (X1)\"\n"
        "     6 valid identities found\n");
    ASSERT_TRUE(list.has_value());
    EXPECT_THAT(shown(*list),
                ElementsAre(doNotCodesign, "Kind A: Holder One (X1)|Holder One (X1)|Kind A",
                            "For iphone: Jo (Y3)|Jo (Y3)|For iphone", "K: H|H|K", "Alone: ||Alone",
                            "Kind A: Holder One (X1)|Holder One (X1)|Kind A"));
    const auto messages = log.messages();
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_EQ(messages[0], "<Tester>-getCodesigningIdentities...");
    EXPECT_THAT(messages[1], HasSubstr("<Tester>-getCodesigningIdentities...cmd = \n[/tmp/"));
    EXPECT_THAT(messages[2], HasSubstr("result = Kind A$$ Holder One (X1)\n"));
    EXPECT_THAT(messages[3], HasSubstr("list of identities[6] = (\n    {\n"));
}

TEST(IdentityListing, TellsNoIdentityFromNoOutput) {
    const LogCapture log;
    const auto none = identitiesListedAs("     0 valid identities found\n");
    ASSERT_TRUE(none.has_value());
    EXPECT_THAT(shown(*none), ElementsAre(doNotCodesign));
    EXPECT_EQ(identitiesListedAs(""), std::nullopt);
    EXPECT_EQ(log.count("result = (null)"), 1);
}

TEST(IdentityListing, SkipsLinesOfAnotherForm) {
    EXPECT_THAT(shown(identitiesFromListing("no separator\n$$holder\n a $$ b $$ c\n\n \t K$$ H \r\n"
                                            "IPHONE x$$H\niPhone$$H")),
                ElementsAre(doNotCodesign, "K: H|H|K"));
    EXPECT_THAT(shown(identitiesFromListing("")), ElementsAre(doNotCodesign));
}

TEST(SelectionIndex, IsTheFirstMatchInAnyCaseOrOnePastTheEnd) {
    const IdentityList list = {{"d", "donotcodesign", "Do NOT Codesign"},
                               {"K", "Jo (X1)", "K: Jo (X1)"},
                               {"L", "jo (x1)", ""}};
    EXPECT_EQ(selectionIndex(list, "jo (x1)"), 1U);
    EXPECT_EQ(selectionIndex(list, "DoNotCodesign"), 0U);
    EXPECT_EQ(selectionIndex({{"K", "JÖRG ŁA", ""}}, "jörg ła"), 0U) << "beyond ASCII too";
    EXPECT_EQ(selectionIndex(list, "gone"), 3U);
    EXPECT_EQ(selectionIndex(list, std::nullopt), 0U);
    EXPECT_EQ(selectionIndex({}, "gone"), 0U);
}
