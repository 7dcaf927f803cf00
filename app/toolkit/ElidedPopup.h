#pragma once

#include <QComboBox>

/// A popup that shortens what it shows in the middle if it does not fit, so that the end of a name
/// stays visible.
class ElidedPopup : public QComboBox {
    Q_OBJECT
public:
    using QComboBox::QComboBox;

    /// What the closed popup shows.
    [[nodiscard]] QString shownText() const;

protected:
    void paintEvent(QPaintEvent* event) override;
};
