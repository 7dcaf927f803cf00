#include "app/results/ResultDelegate.h"

#include "app/results/RunModel.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {

constexpr int margin = 6;
constexpr int iconSize = 18;

/// At least 4.5 : 1 on both kinds of background.
QColor stateColour(PackageState state, const QPalette& palette) {
    const bool dark = palette.color(QPalette::Base).lightness() < 128;
    switch (state) {
    case PackageState::Done:
        return dark ? QColor(0x6f, 0xd0, 0x8c) : QColor(0x1b, 0x6e, 0x35);
    case PackageState::Running:
    case PackageState::Left:
        return palette.color(QPalette::Text);
    default:
        return dark ? QColor(0xff, 0x9a, 0x8f) : QColor(0xb3, 0x1d, 0x12);
    }
}

double luminance(const QColor& colour) {
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

/// The contrast of two colours (WCAG 2), from 1 to 21.
double contrast(const QColor& one, const QColor& other) {
    const double first = luminance(one) + 0.05;
    const double second = luminance(other) + 0.05;
    return std::max(first, second) / std::min(first, second);
}

/// The palette's colour behind selected text, moved away from the text until it can be read.
QColor highlight(const QPalette& palette) {
    const QColor text = palette.color(QPalette::HighlightedText);
    QColor colour = palette.color(QPalette::Highlight);
    const bool lightText = luminance(text) > luminance(colour);
    for (int step = 0; step < 10 && contrast(text, colour) < 4.5; ++step)
        colour = lightText ? colour.darker(110) : colour.lighter(110);
    return colour;
}

/// A disc with a tick, dots or a cross in it: told apart without colours.
void drawIcon(QPainter& painter, const QRectF& at, PackageState state, const QColor& colour,
              const QColor& mark) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawEllipse(at);
    painter.setPen(QPen(mark, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    const auto point = [&](double x, double y) {
        return QPointF(at.x() + x * at.width(), at.y() + y * at.height());
    };
    switch (state) {
    case PackageState::Done:
        painter.drawPolyline(QPolygonF{point(0.28, 0.53), point(0.44, 0.69), point(0.73, 0.34)});
        break;
    case PackageState::Running:
    case PackageState::Left:
        for (const double x : {0.27, 0.5, 0.73})
            painter.drawPoint(point(x, 0.5));
        break;
    default:
        painter.drawLine(point(0.5, 0.24), point(0.5, 0.56));
        painter.drawPoint(point(0.5, 0.76));
    }
}

QFont nameFont(QFont font) {
    font.setWeight(QFont::DemiBold);
    return font;
}

} // namespace

QSize ResultDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
    return {0, QFontMetrics(nameFont(option.font)).height() + option.fontMetrics.height() +
                   2 * margin};
}

void ResultDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                           const QModelIndex& index) const {
    const auto field = [&](int column) {
        return index.sibling(index.row(), column).data().toString();
    };
    const bool selected = (option.state & QStyle::State_Selected) != 0;
    const auto state = static_cast<PackageState>(index.data(RunModel::StateRole).toInt());
    const QColor text = option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    const QColor colour = selected ? text : stateColour(state, option.palette);

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    if (selected)
        painter->fillRect(option.rect, highlight(option.palette));
    if ((option.state & QStyle::State_HasFocus) != 0) {
        painter->setPen(QPen(text, 1, Qt::DotLine));
        painter->drawRect(option.rect.adjusted(1, 1, -2, -2));
    }
    QRect area = option.rect.adjusted(margin + 2, margin, -margin - 2, -margin);
    drawIcon(*painter, QRectF(area.x(), area.center().y() - iconSize / 2.0, iconSize, iconSize),
             state, colour,
             selected ? highlight(option.palette) : option.palette.color(QPalette::Base));
    area.setLeft(area.left() + iconSize + margin + 4);

    const QFont bold = nameFont(option.font);
    const QFontMetrics boldMetrics(bold);
    const QRect upper(area.left(), area.top(), area.width(), boldMetrics.height());
    const QRect lower(area.left(), upper.bottom() + 1, area.width(), option.fontMetrics.height());
    const QString time = field(RunModel::Time);
    const QString right = field(RunModel::State) + (time.isEmpty() ? "" : " · " + time);
    const int rightWidth = option.fontMetrics.horizontalAdvance(right);
    painter->setFont(option.font);
    painter->setPen(colour);
    painter->drawText(upper, Qt::AlignRight | Qt::AlignVCenter, right);
    painter->setPen(text);
    painter->drawText(lower, Qt::AlignVCenter,
                      option.fontMetrics.elidedText(index.data(RunModel::DetailRole).toString(),
                                                    Qt::ElideRight, lower.width()));
    painter->setFont(bold);
    painter->drawText(upper, Qt::AlignVCenter,
                      boldMetrics.elidedText(field(RunModel::Package), Qt::ElideMiddle,
                                             upper.width() - rightWidth - 2 * margin));
    painter->restore();
}
