#pragma once

#include "app/identities/IdentityTool.h"

#include <QDialog>

class QDialogButtonBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPushButton;

/// A form whose first button runs a command of the identity tool. An error stays in the form, as a
/// sentence, and can be mended there. Main thread.
class IdentityDialog : public QDialog {
    Q_OBJECT
public:
    IdentityDialog(IdentityTool& tool, const QString& title, const QString& explanation,
                   const QString& actionTitle);

signals:
    /// A command has changed which identities there are.
    void identitiesChanged();

protected:
    /// The line in which the user types `label`; it is named `name` for tests and readers of the
    /// screen.
    QLineEdit* addLine(const QString& label, const QString& name);
    /// The same with a button that picks a file.
    QLineEdit* addFileLine(const QString& label, const QString& name, const QString& filter);
    QFormLayout* form() { return form_; }
    QPushButton* actionButton() { return action_; }

    /// What the first button does.
    virtual void act() = 0;
    /// Runs the command; on success calls `done` with what it printed, else shows the sentence.
    void run(const QStringList& arguments, const QByteArray& input,
             std::function<void(const QString&)> done);
    void showEvent(QShowEvent* event) override;
    /// Shows a text below the form: plain, selectable, and read aloud.
    void showMessage(const QString& text, bool isError = false);
    /// Shows what has been done; from then on the form can only be closed.
    void finishWith(const QString& text);

private:
    IdentityTool& tool_;
    QFormLayout* form_;
    QLabel* message_;
    QDialogButtonBox* buttons_;
    QPushButton* action_;
};
