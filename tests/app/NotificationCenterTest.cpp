#include "app/toolkit/NotificationCenter.h"

#include "app/toolkit/QtDescription.h"
#include "core/Format.h"

#include <thread>

#include <gmock/gmock.h>

TEST(NotificationCenter, CallsTheObserversOfTheNameInOrderOnThePostersThread) {
    NotificationCenter center;
    std::vector<std::string> calls;
    std::thread::id caller;
    center.addObserver("newsearchpath", [&](const Notification& notification) {
        calls.push_back(formatted("first %@", notification));
        caller = std::this_thread::get_id();
        center.addObserver("newsearchpath", [&](const Notification&) { calls.push_back("late"); });
    });
    center.addObserver("other", [&](const Notification&) { calls.push_back("other"); });
    center.addObserver("newsearchpath", [&](const Notification& notification) {
        const auto& list = std::get<LocationList>(notification.object);
        calls.push_back("second " + pathOf(list.at(1)).value());
    });

    std::thread poster([&] {
        center.post("newsearchpath", LocationList{std::string("/a"), FileUrl("/b", true)});
    });
    const std::thread::id posterId = poster.get_id();
    poster.join();
    EXPECT_THAT(calls, testing::ElementsAre(
                           "first {name = newsearchpath; object = (\n    /a,\n    file:///b/\n)}",
                           "second /b"));
    EXPECT_EQ(caller, posterId);
}

TEST(QtDescription, PrintsAsThePlatformDoes) {
    EXPECT_EQ(formatted("%@", Notification{"n", {}}), "{name = n}");
    EXPECT_EQ(formatted("%@", Notification{"n", LocationItem(std::string("/a b"))}),
              "{name = n; object = /a b}");
    QObject object;
    const QObject* const none = nullptr;
    const std::string text =
        formatted("%@ %@ %@ %@", QRect(-1, 2, 30, 40), QString(), QStringLiteral("é"), none);
    EXPECT_EQ(text, "{{-1, 2}, {30, 40}} (null) é (null)");
    EXPECT_THAT(formatted("%@", &object), testing::MatchesRegex("<QObject: 0x[0-9a-f]+>"));
    EXPECT_EQ(formatted("%@", std::vector<QObject*>{&object}),
              "(\n    \"" + formatted("%@", &object) + "\"\n)");
}
