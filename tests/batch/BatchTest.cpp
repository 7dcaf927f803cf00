#include "batch/Jobs.h"
#include "tests/batch/BatchFace.h"

using base::Json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST_F(BatchFace, PacksAllWithoutAsking) {
    EXPECT_EQ(run({"--process-all", "--jobs=1", folder.path("apps"), folder.path("more/C.app")}),
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
    EXPECT_THAT(
        out.str(),
        AllOf(HasSubstr("missing: nothing is there. Check the path.\n"),
              HasSubstr("notes.txt: a file is there. Give "),
              HasSubstr("empty: no application packages (Name.app) are in this folder. Give "),
              HasSubstr("Broken.app: this package is not a complete "),
              HasSubstr("FAILED: /: this is a whole volume. Give "),
              HasSubstr(" 0 left, 5 PATHs refused\n")));
    EXPECT_TRUE(zipped("more/C.zip"));
    EXPECT_EQ(run({"--process-all", folder.path("more"), folder.path("more/C.app")}),
              ExitStatus::AllDone);
    EXPECT_EQ(run({"--process-all", folder.path("empty")}), ExitStatus::NothingToDo);
    EXPECT_EQ(run({folder.path("missing")}), ExitStatus::NothingToDo);
    EXPECT_EQ(run({}), ExitStatus::NothingToDo);
    EXPECT_EQ(run({"", "/"}), ExitStatus::NothingToDo);
    EXPECT_THAT(out.str(), HasSubstr("(an empty path)"));
    EXPECT_EQ(run({"--json", "/missing"}), ExitStatus::NothingToDo);
    EXPECT_THAT(out.str(), HasSubstr("\"refused\": [\"/missing"));
    EXPECT_EQ(run({"-q", "--process-all", "/missing", folder.path("more")}),
              ExitStatus::SomeFailed);
    EXPECT_EQ(out.str(), "FAILED: /missing: nothing is there. Check the path.\n"
                         "1 package done, 0 failed, 0 folders skipped, 0 left, 1 PATH refused\n");
}

TEST_F(BatchFace, ReportsAFailedPackageWithWhatItsScriptSaidAndGoesOn) {
    folder.makeFolder("apps/A.zip");
    EXPECT_EQ(run({"--process-all", "--jobs=1", folder.path("apps")}), ExitStatus::SomeFailed);
    EXPECT_THAT(out.str(), AllOf(HasSubstr("A.app: FAILED: a folder is in the place of "),
                                 HasSubstr("Bß 2.app: packed as " + folder.path("apps/Bß 2.zip")),
                                 HasSubstr("1 package done, 1 failed")));
    useScript("fenwoJustZipApps.sh", "echo '  why'; echo 'error: what: remedy'");
    EXPECT_EQ(run({"--quiet", "--process-all", folder.path("more")}), ExitStatus::SomeFailed);
    EXPECT_EQ(out.str(), "      why\nC.app: FAILED: what: remedy\n"
                         "0 packages done, 1 failed, 0 folders skipped, 0 left\n");
    EXPECT_EQ(err.str(), "");
    useScript("fenwoJustZipApps.sh", "echo packed: x");
    EXPECT_EQ(run({"--quiet", "--process-all", folder.path("more")}), ExitStatus::AllDone);
    EXPECT_EQ(out.str(), "");
}

TEST_F(BatchFace, TellsProgramsWhatIsInTheRecordToo) {
    folder.makeFolder("apps/A.zip");
    folder.makeApplication("apps/C$.app");
    EXPECT_EQ(
        run({"--json", "--jobs=1", folder.path("apps"), folder.path("more"), "/missing"}, "p\ns\n"),
        ExitStatus::SomeFailed);
    std::vector<Json> lines;
    const std::string printed = out.str();
    for (const std::string_view line : split(trimmed(printed), "\n"))
        lines.push_back(Json::parse(line).value_or(Json()));
    ASSERT_EQ(lines.size(), 4U) << printed;
    const Json& summary = lines.back()["summary"];
    const auto recorded = readRun(summary["record"].string());
    ASSERT_TRUE(recorded);
    EXPECT_TRUE(recorded->finished);
    ASSERT_EQ(recorded->packages.size(), 3U);
    for (std::size_t index = 0; index < 3; ++index)
        EXPECT_EQ(lines[index]["package"], jsonOf(recorded->packages[index]));
    EXPECT_THAT(lines[0]["error"].string(), HasSubstr("a folder is in the place of "));
    EXPECT_TRUE(lines[1]["error"].isNull());
    EXPECT_THAT(lines[2]["error"].string(), HasSubstr("a dollar sign"));
    EXPECT_EQ(lines[2]["package"]["state"].string(), "failed");
    EXPECT_EQ(summary["done"].integer(), 1);
    EXPECT_EQ(summary["failed"].integer(), 2);
    EXPECT_EQ(summary["skipped"].integer(), 1);
    EXPECT_GT(summary["seconds"].number(), 0);
    EXPECT_THAT(summary["refused"].array().at(0).string(), HasSubstr("/missing"));
    EXPECT_THAT(err.str(), HasSubstr("Process this Folder?")) << "not among what programs read";
}

TEST_F(BatchFace, ListsThePackagesAndTouchesNothing) {
    const std::vector<std::string> paths = {folder.path("apps"), folder.path("more/C.app")};
    EXPECT_EQ(run({"--list-packages", paths[0], paths[1]}), ExitStatus::AllDone);
    const std::string a = folder.path("apps/A.app");
    const std::string b = folder.path("apps/Bß 2.app");
    EXPECT_EQ(out.str(), a + '\n' + b + '\n' + paths[1] + '\n');
    EXPECT_EQ(run({"--list-packages", "-0", paths[0], "/missing"}), ExitStatus::SomeFailed);
    EXPECT_EQ(out.str(), a + '\0' + b + '\0');
    EXPECT_EQ(run({"--list-packages", "--json", paths[1]}), ExitStatus::AllDone);
    EXPECT_EQ(Json::parse(out.str()), Json(Json::Array{paths[1]}));
    EXPECT_EQ(run({"--list-packages", "/missing"}), ExitStatus::NothingToDo);
    EXPECT_FALSE(zipped("apps/A.zip"));
}

TEST_F(BatchFace, WorksOnSeveralPackagesAtOnceAndMixesNothing) {
    folder.makeFolder("at work");
    for (const char* name : {"D", "E", "F"})
        folder.makeApplication("more/" + std::string(name) + ".app");
    // The first one waits for another; then all say two lines, and fail.
    useScript("fenwoJustZipApps.sh",
              "cd '" + folder.path("at work") +
                  "'; touch $$; until [ \"$(ls | wc -l)\" -ge 2 ]; do :; done; "
                  "n=${1##*/}; echo \"  $n 1\"; echo \"  $n 2\"; echo \"error: $n: x\"");
    EXPECT_EQ(run({"--process-all", "--jobs=2", folder.path("more")}), ExitStatus::SomeFailed);
    for (const char* name : {"C", "D", "E", "F"}) {
        const std::string n = std::string(name) + ".app";
        EXPECT_THAT(out.str(), HasSubstr("      " + n + " 1\n      " + n + " 2\n" + n +
                                         ": FAILED: " + n + ": x\n"));
    }
    const auto recorded = readRun(recordedRuns(folder.path("runs")).front());
    ASSERT_TRUE(recorded);
    EXPECT_EQ(recorded->packages.size(), 4U);
}

TEST_F(BatchFace, BeginsNothingAfterASignalAndSumsUp) {
    folder.makeApplication("more/D.app");
    interrupted = [this] { return zipped("more/C.zip"); };
    EXPECT_EQ(run({"--process-all", "--jobs=1", folder.path("more"), folder.path("apps/A.app")}),
              ExitStatus::Stopped);
    EXPECT_THAT(out.str(), HasSubstr("\nStopped: 1 package done, 0 failed, 0 folders skipped, 2 "
                                     "left\n"));
    EXPECT_FALSE(zipped("more/D.zip"));
    EXPECT_EQ(run({"--quiet", folder.path("more")}, "p\n"), ExitStatus::Stopped);
    EXPECT_EQ(out.str(), "Stopped: 0 packages done, 0 failed, 0 folders skipped, 1 left\n");
}

TEST_F(BatchFace, SaysWhenItsScriptsCannotBeRun) {
    bundle.resourcesFolder = folder.path("missing");
    EXPECT_EQ(run({"--process-all", folder.path("apps")}), ExitStatus::NothingToDo);
    EXPECT_THAT(err.str(), HasSubstr("The scripts are missing from "));
    folder.makeFile("in a blank/fenwoJustZipApps.sh");
    bundle.resourcesFolder = folder.path("in a blank");
    EXPECT_EQ(run({"--process-all", folder.path("apps")}), ExitStatus::NothingToDo);
    EXPECT_THAT(err.str(), HasSubstr("in a blank, whose name holds a blank "));
}

TEST_F(BatchFace, NoticesWhenAFolderIsEmptiedBeforeItsTurn) {
    for (const char* gone : {"more/C.app", "more"}) {
        for (const bool asks : {false, true}) {
            folder.makeApplication("more/C.app");
            useScript("fenwoJustZipApps.sh", "rm -r '" + folder.path(gone) + "'; echo packed: x");
            EXPECT_EQ(run({"--jobs=1", asks ? "--verbose" : "--process-all",
                           folder.path("apps/A.app"), folder.path("more")},
                          "p\np\n"),
                      ExitStatus::SomeFailed);
            EXPECT_THAT(out.str(), HasSubstr(" no longer there.\n")) << gone;
        }
    }
    folder.makeApplication("more/C.app"); // which goes while a person is asked about it
    EXPECT_EQ(run({"--json", "--jobs=1", folder.path("apps/A.app"), folder.path("more")}, "p\np\n"),
              ExitStatus::SomeFailed);
    const std::string printed = out.str();
    const Json failed = Json::parse(split(printed, "\n").at(1)).value_or(Json());
    EXPECT_EQ(failed["error"].string(), "Its packages are no longer there.");
    const auto recorded = readRun(recordedRuns(folder.path("runs")).front());
    ASSERT_EQ(recorded->packages.size(), 2U);
    EXPECT_EQ(jsonOf(recorded->packages.at(1)), failed["package"]);
    EXPECT_THAT(log.failures(), testing::Contains(HasSubstr("more: Its packages are no longer")));
}

TEST_F(BatchFace, ShowsAProgressLineOnATerminalOnly) {
    outIsTerminal = true;
    EXPECT_EQ(run({"--process-all", folder.path("more")}), ExitStatus::AllDone);
    // The packer may tell in between how far it is.
    EXPECT_THAT(out.str(), AllOf(testing::StartsWith("\r\033[KProcessing App Package: C.app..."),
                                 HasSubstr("\r\033[KC.app: packed as ")));
}

TEST_F(BatchFace, BeginsNoPackageThatTheShellWouldMisreadAndCountsItAsDone) {
    outIsTerminal = true;
    for (const char* name : {"$", "A\033[2m`", "A\n", "A\xff"})
        folder.makeApplication("more/" + std::string(name) + ".app");
    EXPECT_EQ(run({"--process-all", "--jobs=1", folder.path("more")}), ExitStatus::SomeFailed);
    EXPECT_THAT(out.str(), AllOf(HasSubstr("4 failed"), HasSubstr("a dollar sign"),
                                 HasSubstr(": Its path is not UTF-8. Rename it.\n"),
                                 HasSubstr("4 of 5, 80 %: Processing App Package: C.app..."),
                                 Not(HasSubstr("\033[2m")), Not(HasSubstr("without a result"))));
}

TEST_F(BatchFace, LetsNoNameCommandTheTerminal) {
    outIsTerminal = true;
    const std::string entry = folder.path("\033[2m");
    const std::string package = folder.makeApplication("\033[2m/\033[3m.app");
    for (const char* last : {"packed: x", "error: x: y"}) {
        useScript("fenwoJustZipApps.sh", "printf '  \\033[4m\\n" + std::string(last) + "\\n'");
        (void)run({entry}, "p\n");
        EXPECT_THAT(out.str(), Not(testing::ContainsRegex("\033.[234]m")));
    }
    (void)run({"--list-packages", entry});
    EXPECT_THAT(out.str(), Not(HasSubstr("\033")));
    outIsTerminal = false;
    (void)run({"--list-packages", entry});
    EXPECT_EQ(out.str(), package + '\n');
}

TEST_F(BatchFace, TellsTheScriptsWhichThreadsAreTheirs) {
    const ScopedEnvironment pipe("KELPMORAY_PROGRESS", "/of/another");
    useScript("fenwoJustZipApps.sh",
              "echo \"packed: ${KELPMORAY_PROGRESS-none} $KELPMORAY_THREADS\"");
    const unsigned all = Machine::ofThisProcess().processors;
    for (const unsigned jobs : {1U, 2U}) {
        (void)run({"--process-all", "--jobs", std::to_string(jobs), folder.path("apps")});
        EXPECT_THAT(out.str(), HasSubstr("A.app: packed as none " +
                                         std::to_string(std::max(1U, all / jobs)) + " ("));
    }
}

TEST_F(BatchFace, GoesOnIfTheRunCannotBeRecordedAndLogsIt) {
    folder.makeFile("runs");
    EXPECT_EQ(run({"--process-all", folder.path("more")}), ExitStatus::AllDone);
    EXPECT_THAT(log.failures(), testing::Contains(testing::StartsWith("record: ")));
}

TEST_F(BatchFace, LetsNoPackageTakeTheArchiveOfAnother) {
    folder.makeApplication("more/C.APP");
    std::filesystem::create_directory_symlink(folder.path("more"), folder.path("linked"));
    useScript("fenwoJustZipApps.sh", "echo \"packed: $1\"");
    for (const char* jobs : {"--jobs=1", "--jobs=3"}) {
        EXPECT_EQ(run({"--process-all", jobs, folder.path("more"), folder.path("linked/C.app")}),
                  ExitStatus::SomeFailed);
        EXPECT_THAT(out.str(),
                    AllOf(HasSubstr("C.APP: packed as"),
                          HasSubstr("C.app: FAILED: Its archive would take the place of that of " +
                                    folder.path("more/C.APP") + ". Rename"),
                          HasSubstr("1 package done, 2 failed")));
    }
    EXPECT_THAT(log.failures(), testing::Contains(HasSubstr("Its archive would take the place")));
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
