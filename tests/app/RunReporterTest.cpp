#include "app/results/RunReporter.h"

#include "tests/app/Support.h"
#include "tests/support/TemporaryFolder.h"

#include <future>

#include <gtest/gtest.h>
#include <sys/stat.h>

TEST(RunReporter, DoesNotWaitForTheDigestOfAnArchive) {
    const TemporaryFolder folder;
    const std::string runs = folder.path("runs");
    RunReporter reporter(runs, "1.0");
    const std::string slow = folder.path("Slow.zip");
    ASSERT_EQ(mkfifo(slow.c_str(), 0600), 0); // read only once it is written to
    const auto process = [&](const std::string& package, const std::string& archive) {
        reporter.packageStarted(package, "/p", std::nullopt);
        reporter.scriptStarted("fenwoJustZipApps.sh");
        reporter.scriptEnded({"fenwoJustZipApps.sh", "packed: " + archive + "\n"});
        reporter.packageEnded();
    };
    process("/p/Slow.app", slow);
    process("/p/Quick.app", folder.makeFile("Quick.zip", "abc"));
    EXPECT_TRUE(waitUntil([&] { return reporter.model().rowCount() == 2; }));
    for (const int row : {0, 1})
        EXPECT_EQ(reporter.model().index(row, RunModel::State).data(), "Done");
    EXPECT_EQ(reporter.model().packages().at(1).archive->sha256, "");
    EXPECT_EQ(reporter.progressText(), "Reading Slow.zip…");

    std::future<bool> ended = std::async(std::launch::async, [&] { return reporter.runEnded(); });
    EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    std::ofstream{slow}; // opened by the writer, it can be read
    EXPECT_TRUE(ended.get());
    const std::string digest = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    const auto run = readRun(recordedRuns(runs).at(0));
    ASSERT_EQ(run->packages.size(), 2U);
    EXPECT_EQ(run->packages.at(1).archive->sha256, digest);
    EXPECT_TRUE(
        waitUntil([&] { return reporter.model().packages().at(1).archive->sha256 == digest; }));
    EXPECT_EQ(reporter.progressText(), "");
}
