#include "app/VornNSViewAdditions.h"
#include "app/toolkit/QtDescription.h"
#include "tests/app/Support.h"
#include "tests/support/LogCapture.h"

#include <QCheckBox>
#include <QDialog>
#include <QPushButton>

#include <gmock/gmock.h>

namespace {

template <typename T>
T* add(QWidget* parent, const char* name) {
    auto* view = new T(parent);
    view->setObjectName(name);
    return view;
}

QWidget* findButton(QWidget* view, const QString& identifier) {
    return VornNSViewAdditions::findViewWithIdentifier(view, identifier,
                                                       QAbstractButton::staticMetaObject);
}

class ViewLookup : public testing::Test {
protected:
    QWidget window;
    LogCapture log;
};

} // namespace

TEST_F(ViewLookup, IgnoresCaseAndNeverComparesTheReceiver) {
    auto* button = add<QPushButton>(&window, "progressview");
    EXPECT_EQ(findButton(&window, "ProgressView"), button);
    EXPECT_EQ(findObjectWithIdentifier(&window, "PROGRESSVIEW"), button);
    EXPECT_EQ(findButton(button, "progressview"), nullptr);
    EXPECT_EQ(findObjectWithIdentifier(button, "progressview"), nullptr);
}

TEST_F(ViewLookup, AButtonThatDoesNotMatchHidesWhatItHolds) {
    auto* outer = add<QPushButton>(&window, "outer");
    auto* hidden = add<QPushButton>(outer, "wanted");
    EXPECT_EQ(findButton(&window, "wanted"), nullptr);
    EXPECT_EQ(findObjectWithIdentifier(&window, "wanted"), hidden);

    auto* plain = add<QWidget>(&window, "wanted"); // of another class: only searched
    auto* nested = add<QCheckBox>(plain, "wanted");
    EXPECT_EQ(findButton(&window, "wanted"), nested);
}

TEST_F(ViewLookup, TheFirstInDepthFirstOrderWins) {
    auto* first = add<QWidget>(&window, "");
    auto* deep = add<QPushButton>(add<QWidget>(first, ""), "wanted");
    add<QPushButton>(&window, "wanted");
    EXPECT_EQ(findButton(&window, "wanted"), deep);
    EXPECT_EQ(findObjectWithIdentifier(&window, "wanted"), deep);
}

TEST_F(ViewLookup, NeitherAMissingNameNorAnotherWindowMatches) {
    add<QPushButton>(&window, "");
    add<QPushButton>(add<QDialog>(&window, "sheet"), "wanted");
    for (const QString& identifier :
         {QString(), QString(""), QString("wanted"), QString("sheet")}) {
        EXPECT_EQ(findButton(&window, identifier), nullptr);
        EXPECT_EQ(findObjectWithIdentifier(&window, identifier), nullptr);
    }
}

TEST_F(ViewLookup, LogsEachViewItVisits) {
    auto* plain = add<QWidget>(&window, "");
    auto* button = add<QPushButton>(plain, "b");
    const std::string windowText = formatted("%@", &window);
    const std::string plainText = formatted("%@", plain);
    const std::string buttonText = formatted("%@", button);
    const std::string name = "-findViewWithIdentifier:viewType:-> ";

    EXPECT_EQ(findButton(&window, "x"), nullptr);
    EXPECT_EQ(findObjectWithIdentifier(&window, "x"), nullptr);
    EXPECT_THAT(
        log.messages(),
        testing::ElementsAre(
            windowText + name + "identifier[x] classname[QAbstractButton]",
            "self.subviews = (\n    \"" + plainText + "\"\n)",
            "checking => aview[(null)] = " + plainText + " (QWidget)",
            plainText + name + "identifier[x] classname[QAbstractButton]",
            "self.subviews = (\n    \"" + buttonText + "\"\n)",
            "checking => aview[b] = " + buttonText + " (QPushButton)",
            "findObjectWithIdentifier -> looking for identifier[x] in subviews =  (\n    \"" +
                plainText + "\"\n)",
            "found " + plainText + " ",
            "findObjectWithIdentifier -> looking for identifier[x] in subviews =  (\n    \"" +
                buttonText + "\"\n)",
            "found " + buttonText + " "));
}
