#include "app/results/ResultDelegate.h"

#include "app/results/RunModel.h"

#include <QPainter>

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
        return palette.color(QPalette::Text);
    default:
        return dark ? QColor(0xff, 0x9a, 0x8f) : QColor(0xb3, 0x1d, 0x12);
    }
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
        painter->fillRect(option.rect, option.palette.highlight());
    QRect area = option.rect.adjusted(margin + 2, margin, -margin - 2, -margin);
    drawIcon(*painter, QRectF(area.x(), area.center().y() - iconSize / 2.0, iconSize, iconSize),
             state, colour, option.palette.color(selected ? QPalette::Highlight : QPalette::Base));
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
