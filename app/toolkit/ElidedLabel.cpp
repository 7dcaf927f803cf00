#include "app/toolkit/ElidedLabel.h"

#include "app/toolkit/ShownText.h"

#include <QClipboard>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QHelpEvent>
#include <QMenu>
#include <QToolTip>

#include <algorithm>

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
}

void ElidedLabel::setFullText(const QString& text) {
    fullText_ = text;
    setAccessibleName(text);
    elide();
    updateGeometry();
}

QSize ElidedLabel::minimumSizeHint() const {
    return {fontMetrics().averageCharWidth() * 8, QLabel::minimumSizeHint().height()};
}

QSize ElidedLabel::sizeHint() const {
    const int widest = fontMetrics().averageCharWidth() * 60;
    return {std::min(widest, fontMetrics().horizontalAdvance(fullText_)),
            QLabel::sizeHint().height()};
}

bool ElidedLabel::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip)
        return QLabel::event(event);
    showFullText(static_cast<QHelpEvent*>(event)->globalPos());
    return true;
}

/// Not the label's own tool tip: its markup would be read out as the description.
void ElidedLabel::showFullText(QPoint globalPosition) {
    QToolTip::showText(globalPosition, toolTipOf(fullText_), this);
}

void ElidedLabel::resizeEvent(QResizeEvent* event) {
    QLabel::resizeEvent(event);
    elide();
}

void ElidedLabel::changeEvent(QEvent* event) {
    QLabel::changeEvent(event);
    if (event->type() == QEvent::FontChange)
        elide();
}

void ElidedLabel::focusInEvent(QFocusEvent* event) {
    QLabel::focusInEvent(event);
    showFullText(mapToGlobal(rect().bottomLeft()));
}

void ElidedLabel::contextMenuEvent(QContextMenuEvent* event) {
    QMenu menu(this);
    menu.addAction(tr("Copy"), [this] { QGuiApplication::clipboard()->setText(fullText_); });
    menu.exec(event->globalPos());
}

void ElidedLabel::elide() {
    const QString line = shownLine(fullText_);
    setText(fontMetrics().elidedText(line, Qt::ElideMiddle, width()));
    // Without a mouse the tool tip comes with the focus.
    setFocusPolicy(text() == line ? Qt::NoFocus : Qt::TabFocus);
}
