#include "app/toolkit/ArrayController.h"

#include <QComboBox>
#include <QTest>

#include <gmock/gmock.h>

namespace {

IdentityList someIdentities() {
    return {{"Do NOT Codesign", "donotcodesign", "Do NOT Codesign"},
            {"Developer ID", "Jane (J)", "Developer ID: Jane (J)"}};
}

std::string selectedIdentity(const ArrayController& controller) {
    const std::vector<IdentityRecord> selected = controller.selectedObjects();
    return selected.size() == 1 ? selected.front().identitystring : "none";
}

} // namespace

TEST(ArrayController, SelectsARecordOrNothing) {
    ArrayController controller;
    EXPECT_FALSE(controller.content());
    controller.setSelectionIndex(0);
    EXPECT_EQ(controller.selectionIndex(), std::nullopt);

    controller.setContent(someIdentities());
    EXPECT_EQ(controller.selectionIndex(), std::nullopt);
    controller.setSelectionIndex(1);
    EXPECT_EQ(controller.selectionIndex(), 1U);
    EXPECT_EQ(selectedIdentity(controller), "Jane (J)");
    controller.setSelectionIndex(2);
    EXPECT_EQ(controller.selectionIndex(), std::nullopt);
    EXPECT_TRUE(controller.selectedObjects().empty());

    controller.setSelectionIndex(1);
    controller.setContent(IdentityList{});
    EXPECT_TRUE(controller.content());
    EXPECT_TRUE(controller.selectedObjects().empty());
}

TEST(ArrayController, FollowsThePopupBeforeThePickIsReported) {
    ArrayController controller;
    controller.setContent(someIdentities());
    controller.setSelectionIndex(1);
    QComboBox popup;
    controller.bind(popup, "No identities");
    EXPECT_EQ(popup.currentIndex(), 1);

    std::string atThePick;
    QObject::connect(&popup, &QComboBox::activated, &controller,
                     [&] { atThePick = selectedIdentity(controller); });
    popup.show();
    QTest::keyClick(&popup, Qt::Key_Up);
    EXPECT_EQ(atThePick, "donotcodesign");

    controller.setSelectionIndex(9);
    EXPECT_EQ(popup.currentIndex(), -1);
    controller.setSelectionIndex(1);
    EXPECT_EQ(popup.currentIndex(), 1);
}
