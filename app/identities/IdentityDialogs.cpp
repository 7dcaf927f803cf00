#include "app/identities/IdentityDialogs.h"

#include <QComboBox>
#include <QDir>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>

#include <utility>

namespace {

/// A path as a person types it; one that is not absolute counts from the home folder.
QString typedPath(const QLineEdit& line) {
    const QString text = line.text().trimmed();
    // Absolute, so that no name is taken for an option.
    return QDir::home().absoluteFilePath(
        text == "~" || text.startsWith("~/") ? QDir::homePath() + text.mid(1) : text);
}

} // namespace

ImportIdentityDialog::ImportIdentityDialog(IdentityTool& tool)
    : IdentityDialog(
          tool, tr("Import an Identity"),
          tr("Pick the file that holds your certificate and its key (.p12 or .pem), or the "
             "certificate that came back for a request made here."),
          tr("&Look Inside")),
      file_(addFileLine(tr("&File:"), "file",
                        tr("Identities and certificates (*.p12 *.pfx *.pem *.cer *.crt *.der);;"
                           "All files (*)"))),
      passphrase_(addLine(tr("&Passphrase:"), "passphrase")),
      key_(addFileLine(tr("&Key (if in a file of its own):"), "key",
                       tr("Keys (*.pem *.key *.der);;All files (*)"))),
      chain_(addFileLine(tr("&Issuers (if asked for):"), "chain",
                         tr("Certificates (*.pem *.cer *.crt *.der);;All files (*)"))) {
    passphrase_->setEchoMode(QLineEdit::Password);
    for (QLineEdit* line : {file_, passphrase_, key_, chain_})
        connect(line, &QLineEdit::textChanged, this, &ImportIdentityDialog::lookAgain);
}

QStringList ImportIdentityDialog::arguments() const {
    QStringList arguments{"import", typedPath(*file_), "--passphrase-file", "-"};
    for (const auto& [option, line] : {std::pair("--key", key_), std::pair("--chain", chain_)})
        if (!line->text().trimmed().isEmpty())
            arguments << option << typedPath(*line);
    return arguments;
}

void ImportIdentityDialog::lookAgain() {
    looked_ = false;
    actionButton()->setText(tr("&Look Inside"));
    showMessage({});
}

void ImportIdentityDialog::act() {
    if (file_->text().trimmed().isEmpty())
        return showMessage(tr("Give the file to import."), true);
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

RequestCertificateDialog::RequestCertificateDialog(IdentityTool& tool)
    : IdentityDialog(
          tool, tr("Request a Certificate"),
          tr("A new key is made and kept here. Upload the request to the developer portal, "
             "and import the certificate that comes back."),
          tr("&Make the Request")),
      name_(addLine(tr("Your &name:"), "name")), email_(addLine(tr("Your &email:"), "email")),
      file_(addLine(tr("&Write it to:"), "file")) {
    file_->setText(QDir::homePath() + "/CertificateSigningRequest.certSigningRequest");
}

void RequestCertificateDialog::act() {
    for (const QLineEdit* line : {name_, email_, file_})
        if (line->text().trimmed().isEmpty())
            return showMessage(tr("Give your name, your email address and a file."), true);
    run({"create-request", "--name", name_->text().trimmed(), "--email", email_->text().trimmed(),
         "--output", typedPath(*file_)},
        {}, [this](const QString& done) { finishWith(done); });
}

TestIdentityDialog::TestIdentityDialog(IdentityTool& tool)
    : IdentityDialog(
          tool, tr("New Test Identity"),
          tr("A self-signed identity is for trying things. Other machines do not trust what "
             "it signs."),
          tr("&Make It")),
      name_(addLine(tr("&Name:"), "name")) {}

void TestIdentityDialog::act() {
    if (name_->text().trimmed().isEmpty())
        return showMessage(tr("Give the identity a name."), true);
    run({"create-test-identity", name_->text().trimmed()}, {}, [this](const QString& done) {
        finishWith(done);
        emit identitiesChanged();
    });
}

RemoveIdentityDialog::RemoveIdentityDialog(IdentityTool& tool)
    : IdentityDialog(
          tool, tr("Remove an Identity"),
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
        static const QRegularExpression line(R"re(^ *\d+\) ([0-9A-F]{40}) "(.*)")re",
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
