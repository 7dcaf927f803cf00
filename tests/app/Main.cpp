#include "app/toolkit/ClearOutlines.h"
#include "app/toolkit/Queues.h"

#include <QApplication>

#include <csignal>

#include <gtest/gtest.h>

namespace {

/// Two shell commands at once may leave SIGCHLD ignored: then the next test would not learn how its
/// own child ended.
struct ChildSignal : testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { std::signal(SIGCHLD, SIG_DFL); }
};

} // namespace

int main(int argc, char** argv) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new ChildSignal);
    const QApplication application(argc, argv);
    useClearOutlines();
    return endJobs(RUN_ALL_TESTS());
}
