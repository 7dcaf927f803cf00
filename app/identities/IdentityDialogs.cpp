#include "app/identities/IdentityDialogs.h"

#include <QComboBox>
#include <QDir>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>

namespace {

/// Paths as a person types them.
QString typedPath(const QLineEdit& line) {
    const QString text = line.text().trimmed();
    return text == "~" || text.startsWith("~/") ? QDir::homePath() + text.mid(1) : text;
}

} // namespace

ImportIdentityDialog::ImportIdentityDialog(QWidget* parent, IdentityTool& tool)
    : IdentityDialog(
          parent, tool, tr("Import an Identity"),
          tr("Pick the file that holds your certificate and its key (.p12 or .pem), or the "
             "certificate that came back for a request made here."),
          tr("&Look Inside")),
      file_(addFileLine(tr("&File:"), "file",
                        tr("Identities and certificates (*.p12 *.pfx *.pem *.cer *.crt *.der);;"
                           "All files (*)"))),
      passphrase_(addLine(tr("&Passphrase:"), "passphrase")),
      chain_(addFileLine(tr("&Issuers (if asked for):"), "chain",
                         tr("Certificates (*.pem *.cer *.crt *.der);;All files (*)"))) {
    passphrase_->setEchoMode(QLineEdit::Password);
    for (QLineEdit* line : {file_, passphrase_, chain_})
        connect(line, &QLineEdit::textChanged, this, &ImportIdentityDialog::lookAgain);
}

QStringList ImportIdentityDialog::arguments() const {
    QStringList arguments{"import", typedPath(*file_), "--passphrase-file", "-"};
    if (!chain_->text().trimmed().isEmpty())
        arguments << "--chain" << typedPath(*chain_);
    return arguments;
}

void ImportIdentityDialog::lookAgain() {
    looked_ = false;
    actionButton()->setText(tr("&Look Inside"));
    showMessage({});
}

void ImportIdentityDialog::act() {
    if (file_->text().trimmed().isEmpty())
        return showMessage(tr("Give a file."), true);
    const QByteArray secret = passphrase_->text().toUtf8();
    if (!looked_)
        return run(arguments() << "--dry-run", secret, [this](const QString& found) {
            looked_ = true;
            actionButton()->setText(tr("&Import"));
            showMessage(found);
        });
    run(arguments(), secret, [this](const QString& done) {
        passphrase_->clear();
        finishWith(done);
        emit identitiesChanged();
    });
}

RequestCertificateDialog::RequestCertificateDialog(QWidget* parent, IdentityTool& tool)
    : IdentityDialog(
          parent, tool, tr("Request a Certificate"),
          tr("A new key is made and kept here. Upload the request to the developer portal, "
             "and import the certificate that comes back."),
          tr("&Make the Request")),
      name_(addLine(tr("Your &name:"), "name")), email_(addLine(tr("Your &email:"), "email")),
      file_(addLine(tr("&Write it to:"), "file")) {
    file_->setText(QDir::homePath() + "/CertificateSigningRequest.certSigningRequest");
}

void RequestCertificateDialog::act() {
    run({"create-request", "--name", name_->text().trimmed(), "--email", email_->text().trimmed(),
         "--output", typedPath(*file_)},
        {}, [this](const QString& done) { finishWith(done); });
}

TestIdentityDialog::TestIdentityDialog(QWidget* parent, IdentityTool& tool)
    : IdentityDialog(
          parent, tool, tr("New Test Identity"),
          tr("A self-signed identity is for trying things. Other machines do not trust what "
             "it signs."),
          tr("&Make It")),
      name_(addLine(tr("&Name:"), "name")) {}

void TestIdentityDialog::act() {
    run({"create-test-identity", name_->text().trimmed()}, {}, [this](const QString& done) {
        finishWith(done);
        emit identitiesChanged();
    });
}

RemoveIdentityDialog::RemoveIdentityDialog(QWidget* parent, IdentityTool& tool)
    : IdentityDialog(
          parent, tool, tr("Remove an Identity"),
          tr("The certificate and its key are deleted for good, unless you have a copy."),
          tr("&Remove")),
      identities_(new QComboBox) {
    identities_->setObjectName("identities");
    form()->addRow(tr("&Identity:"), identities_);
    actionButton()->setDefault(false);
    list();
}

void RemoveIdentityDialog::list() {
    run({"find-identity", "-p", "codesigning"}, {}, [this](const QString& listing) {
        static const QRegularExpression line(R"(^ *\d+\) ([0-9A-F]{40}) "(.*)")",
                                             QRegularExpression::MultilineOption);
        for (auto match = line.globalMatch(listing); match.hasNext();) {
            const QRegularExpressionMatch found = match.next();
            // Valid identities are listed twice.
            if (identities_->findData(found.captured(1)) < 0)
                identities_->addItem(found.captured(2), found.captured(1));
        }
        actionButton()->setEnabled(identities_->count() > 0);
        if (identities_->count() == 0)
            showMessage(tr("There are no identities."));
    });
}

void RemoveIdentityDialog::act() {
    const QString name = identities_->currentText();
    run({"delete-identity", "-Z", identities_->currentData().toString()}, {},
        [this, name](const QString&) {
            finishWith(tr("%1 has been removed.").arg(name));
            emit identitiesChanged();
        });
}
