#include "app/toolkit/ElidedPopup.h"

#include <QStyleOptionComboBox>
#include <QStylePainter>

namespace {

constexpr int margin = 4; // that styles leave beside the text

} // namespace

QString ElidedPopup::shownText() const {
    QStyleOptionComboBox option;
    initStyleOption(&option);
    const QRect field =
        style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, this);
    const QString text = currentIndex() < 0 ? placeholderText() : currentText();
    return fontMetrics().elidedText(text, Qt::ElideMiddle, field.width() - margin);
}

void ElidedPopup::paintEvent(QPaintEvent*) {
    QStylePainter painter(this);
    QStyleOptionComboBox option;
    initStyleOption(&option);
    option.currentText = shownText();
    painter.drawComplexControl(QStyle::CC_ComboBox, option);
    painter.drawControl(QStyle::CE_ComboBoxLabel, option);
}
