#include "app/toolkit/ClearOutlines.h"

#include <QApplication>
#include <QPainter>
#include <QProxyStyle>
#include <QStyleOption>

namespace {

class ClearOutlines : public QProxyStyle {
public:
    using QProxyStyle::QProxyStyle;

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override {
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        const bool isField = element == PE_FrameLineEdit || element == PE_Frame;
        const bool hasFocus = isField && (option->state & State_HasFocus) != 0;
        if ((element != PE_IndicatorCheckBox && !isField) ||
            (element == PE_FrameLineEdit && hasFocus)) // its outline stands out
            return;
        QColor colour =
            option->palette.color(hasFocus ? QPalette::Highlight : QPalette::WindowText);
        if (!hasFocus)
            colour.setAlphaF(0.55F);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing, false);
        painter->setPen(colour);
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(option->rect.adjusted(0, 0, -1, -1));
        painter->restore();
    }
};

} // namespace

void useClearOutlines() {
    const QString name = QApplication::style()->name();
    if (name == "fusion")
        QApplication::setStyle(new ClearOutlines(name)); // which the application keeps
}
