#pragma once

#include <QLabel>

/// A line of plain text that is shortened in the middle if it does not fit. The whole text is
/// its tool tip and accessible name, and what is copied from it.
class ElidedLabel : public QLabel {
    Q_OBJECT
public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    [[nodiscard]] QString fullText() const { return fullText_; }
    void setFullText(const QString& text);
    [[nodiscard]] QSize minimumSizeHint() const override;
    [[nodiscard]] QSize sizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    void elide();
    void showFullText(QPoint globalPosition);

    QString fullText_;
};
