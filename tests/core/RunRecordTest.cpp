#include "core/RunRecord.h"

#include "core/RunSummary.h"
#include "tests/support/TemporaryFolder.h"

#include <csignal>
#include <thread>

#include <gmock/gmock.h>
#include <locale.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

using testing::ElementsAre;
using testing::SizeIs;

namespace {

const ScriptRun signedRun{"fenwoCodesignApps.sh", "signed: /p/A.app\n", 1.25};
const ScriptRun notSignedRun{"fenwoCodesignApps.sh",
                             "codesign: no\nerror: codesign could not sign /p: A.app: see above\n",
                             1.25};

struct RunRecordTest : testing::Test {
    void process(RunRecord& record, const std::string& package, const ScriptRun& signing) const {
        const std::size_t number = record.packageStarted(package, folder.path(), "Jo (X1)");
        record.scriptEnded(number, signing);
        record.scriptEnded(number, {"fenwoJustZipApps.sh", "packed: " + archive + "\n", 0.5});
        (void)record.packageEnded(number);
    }
    [[nodiscard]] RecordedRun onlyRun() const {
        const auto files = recordedRuns(runs);
        const auto run = files.size() == 1 ? readRun(files.front()) : std::nullopt;
        EXPECT_TRUE(run) << files.size();
        return run.value_or(RecordedRun{});
    }

    TemporaryFolder folder;
    std::string runs = folder.path("state/runs");
    std::string archive = folder.makeFile("A.zip", "abc");
};

} // namespace

TEST_F(RunRecordTest, KeepsWhatBecameOfEachPackage) {
    const char* const previous = setlocale(LC_ALL, "de_DE.UTF-8");
    RunRecord record(runs, "1.0");
    EXPECT_TRUE(recordedRuns(runs).empty());
    process(record, "/p/A\xff.app", signedRun);
    process(record, "/p/B.app", notSignedRun);
    const std::size_t third = record.packageStarted("/p/C.app", "/p", "DoNotCodesign");
    EXPECT_EQ(signatureText(record.package(third)), "Not signed: signing is off");
    // At any moment the file is a document, and says how far the run is.
    ASSERT_TRUE(base::Json::parse(contentOf(record.file())));
    RecordedRun run = onlyRun();
    EXPECT_TRUE(run.underWay);
    EXPECT_EQ(run.packages.at(2).state, PackageState::Running);
    record.scriptEnded(third, {"fenwoJustZipApps.sh", std::nullopt});
    (void)record.packageEnded(third);
    record.finish();
    setlocale(LC_ALL, previous);

    ASSERT_TRUE(base::Json::parse(contentOf(record.file())));
    run = onlyRun();
    EXPECT_TRUE(run.finished && !run.underWay);
    ASSERT_THAT(run.packages, SizeIs(3));
    const PackageRecord& first = run.packages[0];
    EXPECT_EQ(first.path, "/p/A\xff.app");
    EXPECT_EQ(first.entry, folder.path());
    EXPECT_EQ(signatureText(first), "Signed as Jo (X1)");
    EXPECT_EQ(first.archive->size, 3U);
    EXPECT_EQ(first.archive->sha256,
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(secondsOf(first), 1.75);
    EXPECT_TRUE(first.steps.at(0).output.empty());
    const PackageRecord& second = run.packages[1];
    EXPECT_EQ(stateWord(second), "Not signed");
    EXPECT_EQ(second.signedAs, "");
    EXPECT_EQ(failureOf(second)->error, "Codesign could not sign /p: A.app.");
    EXPECT_EQ(failureOf(second)->remedy, "See above.");
    EXPECT_EQ(second.steps.at(0).output, *notSignedRun.output);
    EXPECT_EQ(stateWord(run.packages[2]), "Not packed");
    EXPECT_EQ(summaryOf(run.packages), "3 packages: 1 done, 2 failed.");
}

TEST_F(RunRecordTest, KeepsSeveralPackagesAtOnce) {
    RunRecord record(runs, "1.0");
    constexpr int threads = 4;
    constexpr int each = 8;
    const std::size_t longest = record.packageStarted("/p/Long.app", "/p", std::nullopt);
    std::vector<std::thread> workers;
    for (int thread = 0; thread < threads; ++thread)
        workers.emplace_back([&, thread] {
            for (int count = 0; count < each; ++count)
                process(record, "/p/" + std::to_string(each * thread + count) + ".app",
                        count % 2 == 0 ? signedRun : notSignedRun);
        });
    for (std::thread& worker : workers)
        worker.join();
    ASSERT_TRUE(base::Json::parse(contentOf(record.file())));
    EXPECT_EQ(onlyRun().packages.back().path, "/p/Long.app");
    record.scriptEnded(longest, {"fenwoJustZipApps.sh", "packed: " + archive + "\n", 0.5});
    (void)record.packageEnded(longest);
    record.finish();

    ASSERT_TRUE(base::Json::parse(contentOf(record.file())));
    const std::vector<PackageRecord> packages = onlyRun().packages;
    ASSERT_THAT(packages, SizeIs(threads * each + 1));
    for (const PackageRecord& package : packages) {
        const bool isLong = package.path == "/p/Long.app";
        const bool fails = !isLong && std::stoi(package.path.substr(3)) % 2 != 0;
        EXPECT_EQ(stateWord(package), fails ? "Not signed" : "Done") << package.path;
        EXPECT_THAT(package.steps, SizeIs(isLong ? 1 : 2)) << package.path;
    }
}

TEST_F(RunRecordTest, OfAKilledRunTellsHowFarItCame) {
    const pid_t child = fork();
    if (child == 0) {
        RunRecord record(runs, "1.0");
        record.packagesFound({"/p/A.app", "/p/B.app", "/p/D.app"}, "/p");
        process(record, "/p/A.app", signedRun);
        record.packagesFound({"/p/C.app", "/p/E.app"}, "/q");
        const std::size_t ended = record.packageStarted("/p/B.app", "/p", std::nullopt);
        record.scriptEnded(ended, {"fenwoJustZipApps.sh", "packed: " + archive + "\n", 0.5});
        record.packageStarted("/p/C.app", "/p", "Jo (X1)");
        EXPECT_EQ(stateWord(record.scriptsEnded(ended)), "Done");
        raise(SIGKILL);
    }
    waitpid(child, nullptr, 0);
    RecordedRun run = onlyRun();
    ASSERT_TRUE(base::Json::parse(contentOf(run.file)));
    EXPECT_FALSE(run.finished || run.underWay);
    ASSERT_THAT(run.packages, SizeIs(5));
    EXPECT_EQ(stateWord(run.packages[0]), "Done");
    EXPECT_EQ(stateWord(run.packages[1]), "Done");
    EXPECT_EQ(run.packages[1].archive->size, 3U);
    EXPECT_EQ(run.packages[1].archive->sha256, "") << "it was not read to its end";
    EXPECT_EQ(stateWord(run.packages[2]), "Interrupted");
    EXPECT_EQ(run.packages[4].entry, "/q");
    EXPECT_EQ(summaryOf(run.packages), "5 packages: 2 done, 1 failed, 2 left.");
    EXPECT_THAT(packagesToRetry(run), ElementsAre("/p/C.app", "/p/D.app", "/p/E.app"));
    run.underWay = true;
    EXPECT_THAT(packagesToRetry(run), ElementsAre("/p/C.app")) << "it comes to the others";

    // A power cut may cut the file too.
    std::filesystem::resize_file(run.file, std::filesystem::file_size(run.file) - 30);
    run = onlyRun();
    EXPECT_EQ(summaryOf(run.packages), "5 packages: 2 done, 3 left.");
}

TEST_F(RunRecordTest, IsNoLongerUnderWayOnceItIsLeft) {
    RunRecord record(runs, "1.0");
    process(record, "/p/A.app", signedRun);
    const std::size_t second = record.packageStarted("/p/B.app", "/p", std::nullopt);
    record.leave();
    record.scriptEnded(second, {"fenwoJustZipApps.sh", "packed: " + archive + "\n", 0.5});
    (void)record.packageEnded(second);
    record.finish();
    const RecordedRun run = onlyRun();
    EXPECT_FALSE(run.finished || run.underWay);
    EXPECT_EQ(stateWord(run.packages.at(1)), "Interrupted");
}

TEST_F(RunRecordTest, KeepsTheNewestFilesAndThoseUnderWay) {
    RunRecord underWay(runs, "1.0");
    process(underWay, "/p/A.app", signedRun);
    for (int hour = 0; hour < 60; ++hour)
        folder.makeFile("state/runs/2999-01-01T00-00-" + std::to_string(10 + hour) +
                        ".000Z-1.json");
    folder.makeFile("state/runs/notes.json");
    RunRecord another(runs, "1.0");
    process(another, "/p/B.app", signedRun);
    mkfifo(folder.path("state/runs/1-pipe.json").c_str(), 0600);
    EXPECT_FALSE(readRun(folder.path("state/runs/1-pipe.json")));
    const auto files = recordedRuns(runs);
    EXPECT_THAT(files, SizeIs(RunRecord::filesKept + 2));
    EXPECT_THAT(files.front(), testing::HasSubstr("00-69"));
    EXPECT_TRUE(std::filesystem::exists(folder.path("state/runs/notes.json")));
    EXPECT_NE(underWay.file(), another.file());
}

TEST_F(RunRecordTest, KeepsLittleOfALineWithoutEnd) {
    const std::string endless = "error: it\u00e4" + std::string(1U << 20U, 'x') + ": mend it";
    RunRecord record(runs, "1.0");
    process(record, "/p/A.app", {"fenwoCodesignApps.sh", endless});
    archive = std::string(1U << 20U, 'x');
    process(record, "/p/B.app", signedRun);
    record.finish();
    EXPECT_LT(std::filesystem::file_size(record.file()),
              RunRecord::outputKept + 8 * RunRecord::lineKept);
    const Failure failure = *failureOf(onlyRun().packages.at(0));
    EXPECT_TRUE(failure.error.starts_with("It\u00e4xx"));
    EXPECT_EQ(failure.remedy, "Mend it.");
}

TEST_F(RunRecordTest, FindsTheArchiveWhoseNameIsPrintedOtherwise) {
    const std::string real = folder.makeFile("a\r\xff.zip", "abc");
    archive = folder.path("a?.zip");
    RunRecord record(runs, "1.0");
    process(record, folder.path("a\r\xff.app"), signedRun);
    EXPECT_EQ(onlyRun().packages.at(0).archive->path, real);
    EXPECT_EQ(onlyRun().packages.at(0).archive->size, 3U);
}

TEST_F(RunRecordTest, GoesOnWhereItCannotBeWritten) {
    folder.makeFile("state", "in the way");
    RunRecord record(runs, "1.0");
    process(record, "/p/A.app", signedRun);
    EXPECT_THAT(record.trouble(), testing::HasSubstr(runs));

    RunRecord onFullDisk(folder.path("full"), "1.0");
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit none{0, limit.rlim_max};
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &none);
    process(onFullDisk, "/p/A.app", signedRun);
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, previous);
    onFullDisk.leave();
    EXPECT_THAT(onFullDisk.trouble(), testing::HasSubstr("Cannot write the record of the run"));
    EXPECT_TRUE(onFullDisk.file().empty() && recordedRuns(folder.path("full")).empty());
}

TEST(RunSummary, TellsWhatTheToolSaidIfTheScriptPointsAtIt) {
    PackageRecord package{.path = "/p/A.app", .entry = "/p", .state = PackageState::Failed};
    package.steps = {{.script = "fenwoJustZipApps.sh",
                      .failed = true,
                      .lastLine = "kelpmoray-zip could not pack /p/A.app: see the lines above",
                      .output = "  kelpmoray-zip: first\n  kelpmoray-zip: /p/A.app/x: cannot be "
                                "read: make it readable\nerror: the last line\n"}};
    EXPECT_EQ(failureOf(package)->error, "kelpmoray-zip could not pack A.app.");
    EXPECT_EQ(failureOf(package)->remedy,
              "It said: kelpmoray-zip: A.app/x: cannot be read: make it readable.");
    package.steps.front().output = "  /p/A.entitlements, not /q/p/B (/p/A.zip): unread\n";
    EXPECT_EQ(failureOf(package)->remedy, "It said: A.entitlements, not /q/p/B (A.zip): unread.");
    package.steps.front().output.clear();
    EXPECT_EQ(failureOf(package)->remedy, "See the lines above.");
    package.steps.front().lastLine = "fenwoJustZipApps.sh ended without a result";
    EXPECT_EQ(failureOf(package)->remedy, "See the full output, mend it and try again.");
}

TEST(RunSummary, DividesWhatHinderedAPackageFromWhatToDo) {
    PackageRecord package{.path = "/p. q/A.app", .entry = "/p. q", .state = PackageState::Failed};
    package.notSigned = "Its archive would take the place of that of /p. q/B: C.app. Rename it.";
    EXPECT_EQ(failureOf(package)->error, "Its archive would take the place of that of B: C.app.");
    EXPECT_EQ(failureOf(package)->remedy, "Rename it.");
    package.notSigned = "It is no longer there.";
    EXPECT_EQ(failureOf(package)->error, package.notSigned);
    EXPECT_EQ(failureOf(package)->remedy, "Mend it and try again.");
}

TEST(RunSummary, CountsAsFileBrowsersDo) {
    EXPECT_EQ(sizeText(1), "1 byte");
    EXPECT_EQ(sizeText(999), "999 bytes");
    EXPECT_EQ(sizeText(1'234), "1.2 kB");
    EXPECT_EQ(sizeText(999'999), "1.0 MB");
    EXPECT_EQ(sizeText(412'300'000), "412 MB");
    EXPECT_EQ(timeText(7.9), "0:07");
    EXPECT_EQ(timeText(3723), "1:02:03");
}
