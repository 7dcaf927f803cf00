#pragma once

#include <QStyledItemDelegate>

/// Paints a package of a RunModel on two lines, with an icon of its state, in the colours of the
/// palette.
class ResultDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option,
                                 const QModelIndex& index) const override;
};
