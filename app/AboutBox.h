#pragma once

#include <QDialog>

/// What this program is, its version, and the licences of what it is made of, as a text that can be
/// copied. Blocks no other window. Main thread.
class AboutBox : public QDialog {
public:
    /// `version` is the text that the main window shows.
    AboutBox(const QString& version, QWidget* parent);
};
