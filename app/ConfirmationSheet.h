#pragma once

#include "app/ExpectationPanel.h"
#include "core/Confirmation.h"

#include <QDialog>
#include <QElapsedTimer>

#include <functional>
#include <optional>
#include <string>

class QHBoxLayout;
class QPushButton;
class SettingsStore;

/// The question whether to process a folder, as a sheet. Return stops, wherever the focus is; so
/// does closing it in any other way than by its buttons. A press that begins before the time of a
/// double click is over may be meant for what was there before: it neither processes nor skips.
/// Main thread.
class ConfirmationSheet : public QDialog {
    Q_OBJECT
public:
    /// `folder` is the one asked about, and `entry` what is known of it. The check box "do not
    /// codesign" shows and changes the stored setting at once. `answered` is called once, when the
    /// sheet is gone.
    ConfirmationSheet(const std::optional<std::string>& folder, AskedEntry entry,
                      SettingsStore& settings, std::function<void(Confirmation::Answer)> answered);

protected:
    void showEvent(QShowEvent* event) override;

private:
    /// The texts beside an icon, the buttons below them.
    void layOut(QLayout* texts);
    QPushButton* addButton(const char* title, Confirmation::Answer answer);

    QHBoxLayout* buttons_;
    QElapsedTimer sinceShown_;
    bool pressedUnread_ = false;
};
