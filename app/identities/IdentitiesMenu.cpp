#include "app/identities/IdentitiesMenu.h"

#include "app/identities/IdentityDialogs.h"
#include "app/toolkit/Sheet.h"

IdentitiesMenu::IdentitiesMenu(QWidget* window, std::string tool)
    : QMenu(tr("&Identities"), window), window_(window), tool_(std::move(tool)) {
    setObjectName("identitiesMenu");
    add<ImportIdentityDialog>(tr("&Import…"), "importIdentity");
    add<RequestCertificateDialog>(tr("Request a &Certificate…"), "requestCertificate");
    add<TestIdentityDialog>(tr("New &Test Identity…"), "newTestIdentity");
    addSeparator();
    add<RemoveIdentityDialog>(tr("&Remove…"), "removeIdentity");
}

template <typename Dialog>
void IdentitiesMenu::add(const QString& title, const QString& name) {
    QAction* action = addAction(title, this, [this] { open<Dialog>(); });
    action->setObjectName(name);
}

template <typename Dialog>
void IdentitiesMenu::open() {
    auto* dialog = new Dialog(tool_);
    connect(dialog, &IdentityDialog::identitiesChanged, this, &IdentitiesMenu::identitiesChanged);
    connect(dialog, &QDialog::finished, this, &IdentitiesMenu::closed);
    beginSheet(dialog, window_);
}
