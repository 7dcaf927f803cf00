#pragma once

#include "core/Location.h"

#include <QDialog>
#include <QModelIndexList>

#include <functional>

class ElidedLabel;
class QLabel;
class QLineEdit;
class QListView;
class QPushButton;

/// A panel in which folders, and packages of one type, are picked together, several at once. A
/// package is an item like a file, never a folder to walk into; files and packages of another type
/// are shown but cannot be picked. Main thread.
class ChoosePanel : public QDialog {
    Q_OBJECT
public:
    struct Settings {
        QString message;
        QString prompt; ///< the title of the button that confirms
        QString nameFieldLabel;
        QString allowedFileType; ///< an extension
        QString folder;          ///< that it shows first; home if that is gone
        std::function<void(const QString&)> leftAt = [](const auto&) {}; ///< the folder at its end
    };
    static constexpr int confirmed = 1;
    static constexpr int cancelled = 0;

    /// Gets `confirmed` and the chosen file URLs in the panel's order, or `cancelled` and none.
    using Completion = std::function<void(int code, const LocationList& chosen)>;

    /// Shows a panel as a sheet of `window` and returns at once. The system's own panel, if
    /// there is one, remembers its folder itself.
    static void beginSheet(const Settings& settings, QWidget* window, Completion completion);

    ChoosePanel(const Settings& settings, Completion completion);

    /// Shows the entries of `folder`.
    void setDirectory(const QString& folder);

protected:
    bool eventFilter(QObject* object, QEvent* event) override;

private:
    class Files;

    void layOut(const Settings& settings);
    void activate(const QModelIndex& index);
    void openTypedPath();
    void selectionChanged();
    [[nodiscard]] QModelIndexList selectedRows() const;
    [[nodiscard]] LocationList chosen() const;

    Files* files_;
    QListView* list_;
    QLineEdit* path_;
    QLabel* problem_;
    ElidedLabel* selection_;
    QPushButton* confirm_;
};
