#include "core/IdentityChoice.h"

#include "tests/support/ExpectFails.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

const std::string a(40, 'A');
const std::string b(40, 'B');
const std::string c(40, 'C');
const std::vector<ListedIdentity> identities = {{a, "Developer ID Application: Jo (X1)"},
                                                {b, "Apple Development: Jo (X1)"},
                                                {c, "Apple Development: Kim: \"K\" (Y2)"}};

} // namespace

TEST(IdentityChoice, TakesAHashANameAHolderOrAPartThatFitsOne) {
    const struct {
        std::string wanted;
        std::string hash;
    } rows[] = {{a, a},
                {std::string(40, 'b'), b},
                {"Apple Development: Jo (X1)", b},
                {b + "  Apple Development: Jo (X1)", b},
                {"Jo (X1)", a}, // the holder's identity for distribution comes first
                {"Kim: \"K\" (Y2)", c},
                {"Y2", c},
                {"Developer ID", a}};
    for (const auto& [wanted, hash] : rows) {
        const auto chosen = chosenIdentity(identities, wanted);
        ASSERT_TRUE(chosen) << wanted;
        EXPECT_EQ(chosen->hash, hash) << wanted;
    }
    EXPECT_FAILS(chosenIdentity(identities, "Apple"), Conflict);
    EXPECT_THAT(chosenIdentity(identities, "Apple").error().sentence,
                AllOf(HasSubstr(b + "  Apple Development: Jo"), HasSubstr(c), Not(HasSubstr(a))));
    EXPECT_FAILS(chosenIdentity(identities, "jo"), NotFound);
    EXPECT_FAILS(chosenIdentity({}, "Jo (X1)"), NotFound);
}

TEST(IdentityChoice, ReadsTheToolsLines) {
    const TemporaryFolder bin(TemporaryFolder::withoutBlank);
    ToolPaths tools{.security = bin.path("security")};
    EXPECT_FAILS(listedIdentities(tools), Unavailable);
    bin.makeExecutable("security", "#!/bin/sh\necho \"security: shut: open it\" >&2; exit 1\n");
    EXPECT_EQ(listedIdentities(tools).error().sentence, "shut: open it");
    bin.makeExecutable("security",
                       "#!/bin/sh\n[ \"$*\" = 'find-identity -v -p codesigning' ] && cat "
                       "<<'END'\n  1) " +
                           c + " \"" + identities[2].name + "\"\n  2) " + a +
                           " \"iPhone Developer: Jo\"\n  3) 12 \"Short: Jo\"\n  4) " + c +
                           " \"Again: Jo\"\n     2 valid identities found\nEND\n");
    const auto listed = listedIdentities(tools);
    ASSERT_TRUE(listed);
    ASSERT_EQ(listed->size(), 1U);
    EXPECT_EQ(listed->front().hash, c);
    EXPECT_EQ(listed->front().name, identities[2].name);
}
