#include "batch/Batch.h"

#include "core/ShellRunners.h"
#include "tests/support/ExpectFails.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <sstream>

#include <gmock/gmock.h>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Runs the terminal face over real scripts and files, with a person's typing as input.
struct BatchFace : testing::Test {
    BatchFace() {
        folder.makeApplication("apps/A.app");
        folder.makeApplication("apps/Bß 2.app");
        folder.makeApplication("more/C.app");
    }
    ExitStatus run(const std::vector<std::string>& arguments, const std::string& typed = "") {
        std::istringstream in(typed);
        out.str("");
        err.str("");
        return Batch({.bundle = bundle,
                      .tools = tools,
                      .in = in,
                      .out = out,
                      .err = err,
                      .outIsTerminal = outIsTerminal},
                     *parseOptions(arguments))
            .run();
    }
    [[nodiscard]] bool zipped(const std::string& name) const {
        return std::filesystem::exists(folder.path(name));
    }

    TemporaryFolder folder;
    LogCapture log;
    MainBundle bundle = MainBundle::ofExecutable(KELPMORAY_BIN_DIR "/kelpmoray-batch");
    ToolPaths tools{.security = "/nonexistent/security", .awk = "awk"};
    std::ostringstream out;
    std::ostringstream err;
    bool outIsTerminal = false;
};

} // namespace

TEST_F(BatchFace, PacksAllWithoutAsking) {
    EXPECT_EQ(run({"--process-all", folder.path("apps"), folder.path("more/C.app")}),
              ExitStatus::AllDone);
    EXPECT_EQ(out.str(), "A.app: packed as " + folder.path("apps/A.zip") + " (not signed)\n" +
                             "Bß 2.app: packed as " + folder.path("apps/Bß 2.zip") +
                             " (not signed)\n" + "C.app: packed as " + folder.path("more/C.zip") +
                             " (not signed)\n" +
                             "3 packages done, 0 failed, 0 folders skipped, 0 left\n");
    EXPECT_EQ(err.str(), "");
    EXPECT_THAT(log.failures(), testing::IsEmpty());
    EXPECT_TRUE(zipped("apps/Bß 2.zip"));
}

TEST_F(BatchFace, AsksAboutEachFolderInTheWindowsWords) {
    EXPECT_EQ(run({folder.path("apps"), folder.path("more")}, "what?\nD\nskip\np\n"),
              ExitStatus::AllDone);
    EXPECT_THAT(out.str(),
                AllOf(HasSubstr("Process this Folder?\n" + folder.path("apps") + "\n"),
                      HasSubstr("[P] Process   [S] Skip   [Return] Stop   [D] [ ] do not "
                                "codesign > "),
                      HasSubstr("[D] [x] do not codesign > "), HasSubstr("Type P, S or D"),
                      HasSubstr("1 package done, 0 failed, 1 folder skipped, 0 left")));
    EXPECT_FALSE(zipped("apps/A.zip"));
    EXPECT_TRUE(zipped("more/C.zip"));
    EXPECT_EQ(
        log.count("<Batch>-isValidItemToSign:...returning Valid as prefDoNotCodesign = NO..."), 1)
        << "the box ticked for the first folder still holds for the second";
}

TEST_F(BatchFace, StopsOnReturnOnStopAndAtTheEndOfInput) {
    for (const char* typed : {"\np\n", "stop\n", ""}) {
        EXPECT_EQ(run({folder.path("apps"), folder.path("more")}, typed), ExitStatus::Stopped);
        EXPECT_THAT(out.str(), HasSubstr("0 packages done, 0 failed, 0 folders skipped, 2 left"));
        EXPECT_FALSE(zipped("apps/A.zip"));
    }
}

TEST_F(BatchFace, SaysWhatIsWrongWithEachPathAndDoesTheRest) {
    folder.makeFile("notes.txt");
    folder.makeFolder("empty");
    folder.makeFolder("Broken.app");
    EXPECT_EQ(run({"--process-all", folder.path("missing"), folder.path("notes.txt"),
                   folder.path("empty"), folder.path("Broken.app"), "/", folder.path("more")}),
              ExitStatus::SomeFailed);
    EXPECT_THAT(err.str(), AllOf(HasSubstr("missing: nothing is there\n"),
                                 HasSubstr("notes.txt: a file is there; give "),
                                 HasSubstr("empty: no application packages (Name.app) are in "),
                                 HasSubstr("Broken.app: this package is not a complete "),
                                 HasSubstr("/: this is a whole volume; ")));
    EXPECT_TRUE(zipped("more/C.zip"));
    EXPECT_EQ(run({folder.path("missing")}), ExitStatus::NothingToDo);
    EXPECT_EQ(run({}), ExitStatus::NothingToDo);
}

#ifndef __APPLE__ // which has signing
TEST_F(BatchFace, ReportsAFailedPackageAndGoesOn) {
    folder.makeFolder("apps/A.zip");
    EXPECT_EQ(run({"--process-all", "--identity", "Jo (X1)", folder.path("apps")}),
              ExitStatus::SomeFailed);
    EXPECT_THAT(
        out.str(),
        AllOf(
            HasSubstr("A.app: FAILED: no valid identity of Jo (X1): pick one of the identities in "
                      "the list, or import yours; a folder is in the place of "),
            HasSubstr("Bß 2.app: FAILED: no valid identity of Jo (X1): pick one of the identities "
                      "in the list, or import yours; packed as " +
                      folder.path("apps/Bß 2.zip")),
            HasSubstr("0 packages done, 2 failed")));
}
#endif

TEST_F(BatchFace, ListsTheIdentities) {
    EXPECT_EQ(run({"--list-identities"}), ExitStatus::NothingToDo);
    EXPECT_THAT(err.str(), HasSubstr("/nonexistent/security is missing"));

    const TemporaryFolder bin(TemporaryFolder::withoutBlank);
    tools.security = bin.makeExecutable(
        "security",
        "#!/bin/sh\ncat <<'END'\n  1) 00 \"Kind A: Jo (X1)\"\n  2) 11 \"iPhone Developer: "
        "Jo (X1)\"\n  3) 22 \"Kind B: Kim (Y2)\"\n     3 valid identities found\nEND\n");
    EXPECT_EQ(run({"--list-identities"}), ExitStatus::AllDone);
    EXPECT_EQ(out.str(), "Do NOT Codesign\nKind A: Jo (X1)\nKind B: Kim (Y2)\n");
}

TEST_F(BatchFace, SignsAsTheHolderGiven) {
    const std::string hash(40, 'A');
    const TemporaryFolder bin(TemporaryFolder::withoutBlank);
    tools.security =
        bin.makeExecutable("security", "#!/bin/sh\necho '1) " + hash + " \"Kind: Jo (X1)\"'\n");
    bin.makeExecutable("codesign", "#!/bin/sh\n");
    // The inspector's path is fixed: what reads its output answers in its stead.
    bin.makeExecutable("awk", "#!/bin/sh\ncase $1 in */^Authority*) cat >/dev/null; echo 'Kind: Jo "
                              "(X1)';; *) exec /usr/bin/awk \"$@\";; esac\n");
    const ScopedEnvironment searchPath("PATH", pathWith(bin.path()));
    EXPECT_EQ(run({"--process-all", "--identity=Jo (X1)", folder.path("more")}),
              ExitStatus::AllDone);
    EXPECT_THAT(out.str(),
                HasSubstr("C.app: packed as " + folder.path("more/C.zip") + " (signed)\n"));
    EXPECT_TRUE(log.contains("<Batch>-isValidItemToSign:...FOUND object = [Kind: Jo (X1)]...."));
}

TEST_F(BatchFace, SaysWhenItsScriptsCannotBeRun) {
    bundle.resourcesFolder = folder.path("missing");
    EXPECT_EQ(run({"--process-all", folder.path("apps")}), ExitStatus::NothingToDo);
    EXPECT_THAT(err.str(), HasSubstr("the scripts are missing from "));
    folder.makeFile("in a blank/fenwoJustZipApps.sh");
    bundle.resourcesFolder = folder.path("in a blank");
    EXPECT_EQ(run({"--process-all", folder.path("apps")}), ExitStatus::NothingToDo);
    EXPECT_THAT(err.str(), HasSubstr("in a blank, whose name holds a blank "));
}

TEST_F(BatchFace, NoticesWhenAFolderIsEmptiedBeforeItsTurn) {
    const TemporaryFolder resources(TemporaryFolder::withoutBlank);
    bundle.resourcesFolder = resources.path();
    for (const char* gone : {"more/C.app", "more"}) {
        folder.makeApplication("more/C.app");
        resources.makeExecutable("fenwoJustZipApps.sh",
                                 "#!/bin/sh\nrm -r '" + folder.path(gone) + "'; echo packed: x\n");
        EXPECT_EQ(run({"--process-all", "--do-not-codesign", folder.path("apps/A.app"),
                       folder.path("more")}),
                  ExitStatus::SomeFailed);
        EXPECT_THAT(err.str(), HasSubstr("no longer there")) << gone;
    }
}

TEST_F(BatchFace, ShowsAProgressLineOnATerminalOnly) {
    outIsTerminal = true;
    EXPECT_EQ(run({"--process-all", folder.path("more")}), ExitStatus::AllDone);
    EXPECT_THAT(out.str(),
                testing::StartsWith("\r\033[KProcessing App Package: C.app...\r\033[KC.app: "));
}

TEST(Options, AreReadUpToTheDoubleDash) {
    const Options options =
        *parseOptions({"--process-all", "a", "--identity=Jo (X1)", "--", "--verbose"});
    EXPECT_TRUE(options.processAll);
    EXPECT_FALSE(options.verbose);
    EXPECT_EQ(options.identity, "Jo (X1)");
    EXPECT_THAT(options.paths, testing::ElementsAre("a", "--verbose"));
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--no-such"},
                                                  {"--identity"},
                                                  {"--identity="},
                                                  {"--identity=J", "--do-not-codesign"}})
        EXPECT_FAILS(parseOptions(wrong), Usage) << wrong.front();
}

TEST(Program, LogsOnStandardErrorOnlyWhenAsked) {
    const TemporaryFolder folder;
    folder.makeApplication("A.app");
    const std::string command =
        KELPMORAY_BIN_DIR "/kelpmoray-batch --process-all '" + folder.path() + "' 2>&1 >/dev/null";
    EXPECT_EQ(runShellCommand(command + "; echo $?"), "0\n");
    EXPECT_THAT(runShellCommand(command + " --verbose").value_or(""),
                testing::ContainsRegex("[0-9]+-[0-9]+-[0-9]+ [0-9:.]+ kelpmoray-batch\\[[0-9]+\\] "
                                       "<Batch>-doProcessItemNew:\\.\\.\\.\n"));
    EXPECT_THAT(runShellCommand(KELPMORAY_BIN_DIR "/kelpmoray-batch --nope 2>&1; echo $?"),
                testing::Optional(HasSubstr("There is no option --nope. See --help.\n2\n")));
    EXPECT_THAT(runShellCommand(KELPMORAY_BIN_DIR "/kelpmoray-batch --help"),
                testing::Optional(HasSubstr("Exit status: 0 all done")));
}
