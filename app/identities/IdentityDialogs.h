#pragma once

#include "app/identities/IdentityDialog.h"

class QComboBox;

/// Imports a file with a certificate and its key. What is in the file is shown before anything is
/// stored: the first press of the button looks, the second imports.
class ImportIdentityDialog : public IdentityDialog {
    Q_OBJECT
public:
    explicit ImportIdentityDialog(IdentityTool& tool);

private:
    void act() override;
    void lookAgain();
    [[nodiscard]] QStringList arguments() const;

    QLineEdit* file_;
    QLineEdit* passphrase_;
    QLineEdit* key_;
    QLineEdit* chain_;
    bool looked_ = false;
};

/// Makes a key and writes the request for its certificate, to be uploaded to the developer portal.
class RequestCertificateDialog : public IdentityDialog {
    Q_OBJECT
public:
    explicit RequestCertificateDialog(IdentityTool& tool);

private:
    void act() override;

    QLineEdit* name_;
    QLineEdit* email_;
    QLineEdit* file_;
};

/// Makes a self-signed identity for trying things.
class TestIdentityDialog : public IdentityDialog {
    Q_OBJECT
public:
    explicit TestIdentityDialog(IdentityTool& tool);

private:
    void act() override;

    QLineEdit* name_;
};

/// Removes an identity, its key included.
class RemoveIdentityDialog : public IdentityDialog {
    Q_OBJECT
public:
    explicit RemoveIdentityDialog(IdentityTool& tool);

private:
    void act() override;
    void list();

    QComboBox* identities_;
};
