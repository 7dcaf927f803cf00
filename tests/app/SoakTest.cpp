#include "app/VornNSViewAdditions.h"
#include "tests/app/WindowFixture.h"

#include <QElapsedTimer>
#include <QLabel>
#include <QRandomGenerator>

#include <thread>

namespace {

constexpr int packagesInEach = 5;
constexpr int addedAtOnce = 10;

/// Intake, batch and effects at the same time, for KELPMORAY_SOAK_SECONDS (two by default).
struct Soak : WindowFixture {
    Soak() {
        bin.makeExecutable("fenwoCodesignApps.sh", "#!/bin/sh\n");
        bin.makeExecutable("fenwoJustZipApps.sh", "#!/bin/sh\necho >\"${1%.app}.zip\"\n");
        openWindow();
        settle();
    }
    /// Adds folders whenever it is called for, from a thread of its own.
    void addFolders() {
        while (!over) {
            const int seen = rounds;
            for (int i = 0; i < addedAtOnce; ++i) {
                const std::string name = std::to_string(added++);
                for (int package = 0; package < packagesInEach; ++package)
                    folder.makeFolder(name + "/" + std::to_string(package) + ".app");
                if (i % 2 == 0)
                    controller().addItemsToBeProcessedSet({folder.path(name)});
                else
                    controller().addItemToBeProcessedSet(folder.path(name));
            }
            MainQueue::async([this] { controller().doButton1(nullptr); });
            rounds.wait(seen);
        }
    }
    void callForMore() {
        ++rounds;
        rounds.notify_one();
    }
    static void playEffects(QWidget* view, int which) {
        using namespace VornNSViewAdditions;
        switch (which) {
        case 0:
            return nodLeftRight(view, 1);
        case 1:
            return flashOnOff(view, 1);
        case 2:
            return rotateNSViewWithCompletionHandler(view, [] {});
        default:
            return clearAnimationKeys(view);
        }
    }
    /// Presses Process, or every fourth time Skip, on the sheet that stands.
    void answerSheet() {
        auto* shown = window->findChild<ConfirmationSheet*>();
        if (shown == nullptr || !shown->isVisible())
            return;
        const bool skip = ++answers % 4 == 0;
        skipped += skip ? 1 : 0;
        shown->findChild<QPushButton*>(skip ? "Skip" : "Process")->click();
    }

    std::atomic<bool> over = false;
    std::atomic<int> rounds = 0;
    std::atomic<int> added = 0;
    int answers = 0;
    int skipped = 0;
};

} // namespace

TEST_F(Soak, LosesNothingWhileEverythingHappensAtOnce) {
    const int seconds = std::max(2, qEnvironmentVariableIntValue("KELPMORAY_SOAK_SECONDS"));
    std::thread adder([this] { addFolders(); });
    std::thread player;
    auto* label = find<QLabel>("invitation");
    const QDeadlineTimer end(std::chrono::seconds{seconds});
    while (added <= addedAtOnce || !end.hasExpired()) {
        answerSheet();
        if (controller().fSetOfFolders()->count() < addedAtOnce / 2)
            callForMore();
        if (QRandomGenerator::global()->bounded(20) == 0) {
            window->resize(420 + QRandomGenerator::global()->bounded(200), 400);
            if (player.joinable())
                player.join();
            player = std::thread(playEffects, label, answers % 4);
        }
        QCoreApplication::processEvents();
    }
    over = true;
    callForMore();
    adder.join();
    if (player.joinable())
        player.join();
    ASSERT_TRUE(waitUntil([this] {
        answerSheet();
        if (!controller().fButton1Busy())
            controller().doButton1(nullptr);
        return controller().fSetOfFolders()->count() == 0;
    }));
    settle();
    int untouched = 0;
    for (int i = 0; i < added; ++i) {
        int archives = 0;
        for (const auto& entry :
             std::filesystem::directory_iterator(folder.path(std::to_string(i))))
            archives += entry.path().extension() == ".zip" ? 1 : 0;
        untouched += archives == 0 ? 1 : 0;
        EXPECT_TRUE(archives == 0 || archives == packagesInEach) << i;
    }
    EXPECT_GE(answers, added) << "each folder is asked about";
    EXPECT_LE(untouched, skipped);
    EXPECT_GT(added, addedAtOnce);
}
