#include "base/ProgressChannel.h"

#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <csignal>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace base {
namespace {

TEST(ProgressPipe, TakesTheLastWholeLineThatAStepHasTold) {
    const TemporaryFolder folder;
    const ScopedEnvironment runtime("XDG_RUNTIME_DIR", folder.path());
    {
        ProgressPipe pipe;
        EXPECT_TRUE(pipe.path().starts_with(folder.path() + '/'));
        EXPECT_EQ(pipe.takePercent(), std::nullopt);
        const ScopedEnvironment named(ProgressChannel::variable, pipe.path());
        ProgressChannel step;
        ASSERT_TRUE(step.open());
        step.tell(1, 4);
        EXPECT_EQ(pipe.takePercent(), 25);
        EXPECT_EQ(pipe.takePercent(), std::nullopt);
        std::string many;
        for (int count = 0; count < 300; ++count)
            many += "10%\n";
        const std::pair<std::string, std::optional<int>> cases[] = {
            {"2%\n0%\n", 0},          {"7%\n50%\n6", 50},      {many + "100%\n", 100},
            {"101%\n", std::nullopt}, {"1x%\n", std::nullopt}, {"40\n", std::nullopt},
            {"40%", std::nullopt}};
        for (const auto& [lines, percent] : cases) {
            std::ofstream(pipe.path()) << lines;
            EXPECT_EQ(pipe.takePercent(), percent) << lines;
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(ProgressPipe, TakesAwayWhatKilledProcessesLeftAndNothingElse) {
    const TemporaryFolder folder;
    const ScopedEnvironment runtime("XDG_RUNTIME_DIR", folder.path());
    const pid_t child = fork();
    if (child == 0) {
        const ProgressPipe left;
        raise(SIGKILL);
    }
    waitpid(child, nullptr, 0);
    const std::filesystem::directory_iterator left(folder.path());
    ASSERT_NE(left, std::filesystem::directory_iterator());
    const std::string leftover = left->path().string();
    const std::string foreign = folder.path("foreign");
    ASSERT_EQ(mkfifo(foreign.c_str(), 0600), 0);
    const ProgressPipe first;
    EXPECT_FALSE(std::filesystem::exists(leftover));
    const ProgressPipe second;
    for (const std::string& path : {foreign, first.path(), second.path()})
        EXPECT_TRUE(std::filesystem::exists(path)) << path;
}

TEST(ProgressPipe, IsWhereAShellCanNameIt) {
    const TemporaryFolder folder;
    const ScopedEnvironment runtime("XDG_RUNTIME_DIR", folder.makeFolder("it's"));
    const ScopedEnvironment temporary("TMPDIR", folder.path());
    EXPECT_TRUE(ProgressPipe().path().starts_with(folder.path() + "/."));
    const ScopedEnvironment none("TMPDIR", "relative");
    EXPECT_TRUE(ProgressPipe().path().starts_with("/tmp/"));
}

} // namespace
} // namespace base
