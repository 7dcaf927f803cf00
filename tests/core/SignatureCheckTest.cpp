#include "core/SignatureCheck.h"

#include "core/Path.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const Caller caller{"Tester", "<Tester>"};
const IdentityList identities = {{"donotcodesign", "donotcodesign", "Do NOT Codesign"},
                                 {"K", "Jo (X1)", "K: Jo (X1)"}};

struct SignatureCheck : testing::Test {
    bool check(const std::string& path, bool doNotCodesign = false) {
        return isValidItemToSign(caller, tools, path, doNotCodesign, [this] {
            ++timesAsked;
            return identities;
        });
    }
    void authoritiesAre(const std::string& lines) {
        tools.codesign =
            inspectors.makeExecutable("codesign", "#!/bin/sh\nprintf 'Format=x\n'\nprintf '" +
                                                      lines + "' | sed 's/^/Authority=/' >&2\n");
    }

    TemporaryFolder folder;
    const TemporaryFolder inspectors{TemporaryFolder::withoutBlank};
    ToolPaths tools;
    LogCapture log;
    int timesAsked = 0;
};

} // namespace

TEST_F(SignatureCheck, LooksAtNothingWhenSigningIsOff) {
    EXPECT_TRUE(check(folder.makeFolder("Tool.app"), true));
    EXPECT_THAT(
        log.messages(),
        ElementsAre("<Tester>-isValidItemToSign:...returning Valid as prefDoNotCodesign = NO..."));
}

TEST_F(SignatureCheck, InspectsOnlyPackageFolders) {
    const std::string justFolder =
        "<Tester>-isValidItemToSign:...item is just a folder/directory....";
    EXPECT_TRUE(check(folder.path("missing.app")));
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_TRUE(check(folder.makeFile("tool.app")));
    EXPECT_TRUE(check(folder.makeFolder("Folder")));
    EXPECT_TRUE(check(folder.makeFolder("Folder.bundle")));
    EXPECT_THAT(log.messages(), ElementsAre("<Tester>-isValidItemToSign:...NOT an .app package....",
                                            justFolder, justFolder));
}

TEST_F(SignatureCheck, FindsAnAuthorityAmongTheIdentities) {
    authoritiesAre("Some Root\\nK: Jo (X1)\\nDo NOT Codesign\\n");
    EXPECT_TRUE(check(folder.makeFolder("Tool.APP")));
    EXPECT_EQ(timesAsked, 2) << "once for each authority up to the match";
    EXPECT_THAT(
        log.messages(),
        ElementsAre("cmd = " + tools.codesign + " -dv --verbose=4 \"" + folder.path("Tool.APP") +
                        "\" 2>&1 |awk '/^Authority=/ {sub(\"^Authority=\",\"\");print $0;}'",
                    "this item was signed with:\n(\n    \"Some Root\",\n    \"K: Jo (X1)\",\n"
                    "    \"Do NOT Codesign\"\n)",
                    "<Tester>-isValidItemToSign:...FOUND object = [K: Jo (X1)]...."));
}

TEST_F(SignatureCheck, GivesNoVerdictOnAnUnsignedPackageAndComparesExactly) {
    const std::string package = folder.makeFolder("Tool.app");
    authoritiesAre("");
    EXPECT_TRUE(check(package));
    EXPECT_EQ(timesAsked, 0);
    EXPECT_EQ(log.messages().back(), "this item was signed with:\n(null)");
    authoritiesAre("k: jo (x1)\\n");
    EXPECT_TRUE(check(package));
    EXPECT_TRUE(log.contains("<Tester>-isValidItemToSign:...DID NOT FIND object = [nothing]...."));
}

TEST_F(SignatureCheck, StandardizesThePathForTheCommandOnly) {
    authoritiesAre("A\\n");
    folder.makeFolder("home/Tool.app");
    folder.makeFolder("home/sub");
    const ScopedEnvironment home("HOME", folder.path("home"));
    EXPECT_TRUE(check("~/Tool.app"));
    EXPECT_THAT(log.messages(), IsEmpty()) << "nothing exists at the path as it was given";
    EXPECT_TRUE(check(folder.path("home/sub/../Tool.app")));
    EXPECT_THAT(log.messages().front(),
                HasSubstr("--verbose=4 \"" + folder.path("home/Tool.app") + "\""));
}

TEST(ToolPaths, AreTheSystemsAndOnlyWithoutThoseOurOwn) {
    const TemporaryFolder folder;
    const std::string program = folder.makeExecutable("bin/kelpmoray", "");
    const ToolPaths none = ToolPaths::of(MainBundle::ofExecutable(program));
    EXPECT_EQ(none.security, "/usr/bin/security");
    EXPECT_EQ(none.codesign, "/usr/bin/codesign");
    const std::string own = folder.makeExecutable("bin/kelpmoray-codesign", "");
    const bool systemSigns = fileExists("/usr/bin/codesign");
    EXPECT_EQ(ToolPaths::of(MainBundle::ofExecutable(program)).codesign,
              systemSigns ? "/usr/bin/codesign" : own);
}
