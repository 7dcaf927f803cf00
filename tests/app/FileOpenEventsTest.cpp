#include "app/toolkit/FileOpenEvents.h"

#include "app/toolkit/OpenRequests.h"
#include "tests/app/Support.h"

#include <QCoreApplication>
#include <QFileOpenEvent>
#include <QUrl>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(FileOpenEvents, OfOneTurnAreOneRequestInTheirOrder) {
    std::vector<LocationList> opened;
    OpenRequests requests(
        "org.example.test", [&](const LocationList& urls) { opened.push_back(urls); }, [] {},
        [](const auto&, const auto&) {});
    const FileOpenEvents events([&](const QStringList& uris) { requests.open(uris); });
    const auto send = [](const auto& what) {
        QFileOpenEvent event(what);
        EXPECT_TRUE(QCoreApplication::sendEvent(qApp, &event));
    };
    const auto url = [](const char* path) { return LocationItem(FileUrl(path, false)); };

    send(QString("/A/50%25 Ü.app"));
    send(QString("/A/b"));
    send(QUrl("https://example.org/c"));
    EXPECT_THAT(opened, IsEmpty()) << "never inside the event";
    EXPECT_TRUE(waitUntil([&] { return !opened.empty(); }));
    send(QString("/A/d"));
    EXPECT_TRUE(waitUntil([&] { return opened.size() > 1; }));
    EXPECT_THAT(opened, ElementsAre(ElementsAre(url("/A/50%25 Ü.app"), url("/A/b"),
                                                LocationItem(OtherItem{"https://example.org/c"})),
                                    ElementsAre(url("/A/d"))));
}
