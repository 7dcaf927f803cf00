#include "tests/app/Support.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

/// Runs the leaving program to its end and expects it to leave well: with its own status, with
/// nothing to say, long before the script in it would end.
void expectToLeave(const QStringList& arguments) {
    QProcess program;
    program.setProcessChannelMode(QProcess::MergedChannels);
    QElapsedTimer clock;
    clock.start();
    program.start(QStringLiteral(LEAVING_PROGRAM), arguments);
    ASSERT_TRUE(waitUntil([&] { return program.state() == QProcess::NotRunning; }));
    EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(program.exitCode(), 7) << program.readAll().toStdString();
    EXPECT_LT(clock.elapsed(), 10'000);
}

} // namespace

TEST(ProcessEnd, WaitsForNoScriptAndNoEffect) {
    for (const char* work : {"script", "effects", "idle"})
        expectToLeave({work});
}

TEST(ProcessEnd, StartsTheCommandThatWasAskedForBefore) {
    const QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("revealed"));
    expectToLeave(
        {QStringLiteral("reveal"), QStringLiteral("touch '%1'; exec sleep 30").arg(file)});
    EXPECT_TRUE(QFileInfo::exists(file));
}
