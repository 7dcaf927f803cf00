#include "app/MainWindow.h"
#include "app/Names.h"
#include "app/identities/IdentitiesMenu.h"
#include "app/toolkit/SettingsStore.h"
#include "app/toolkit/ShownText.h"
#include "core/Path.h"
#include "ui_MainWindow.h"

void MainWindow::bindIdentities() {
    identities_.bind(*ui_->identities, fileExists(surroundings_.tools.security)
                                           ? tr("No identities listed")
                                           : tr("No identity tool here"));
    // The wheel over a closed popup would change the signer unseen.
    ui_->identities->setFocusPolicy(Qt::StrongFocus);
    explainIdentities();
    connect(&identities_, &ArrayController::selectionChanged, this, &MainWindow::explainIdentities);
    if (surroundings_.tools.hasOwnSecurity())
        addIdentitiesMenu();
}

void MainWindow::addIdentitiesMenu() {
    identitiesMenu_ = new IdentitiesMenu(this, surroundings_.tools.security);
    ui_->menus->insertMenu(ui_->helpMenu->menuAction(), identitiesMenu_);
    connect(identitiesMenu_, &IdentitiesMenu::identitiesChanged, &controller_,
            &ViewController::identitiesChanged);
    connect(identitiesMenu_, &IdentitiesMenu::closed, &controller_, &ViewController::sheetClosed);
}

void MainWindow::explainIdentities() {
    const QString tool = QString::fromStdString(surroundings_.tools.security);
    const auto selected = identities_.selectedObjects();
    QString text = tr("The identity that packages are signed with");
    if (!identities_.content())
        text = (fileExists(surroundings_.tools.security)
                    ? tr("%1 gave no list of identities")
                    : tr("%1, which lists the identities, is not on this system"))
                   .arg(tool);
    else if (surroundings_.tools.hasOwnSecurity() && identities_.content()->size() == 1)
        text = tr("There is no identity to sign with yet: choose Import in the menu Identities");
    else if (!selected.empty())
        // The closed popup may have to shorten it.
        text = QString::fromStdString(selected.front().displaystring) + '\n' + text;
    ui_->identities->setToolTip(toolTipOf(text));
    ui_->identities->setAccessibleDescription(text);
    // Shown while nothing is selected.
    if (const auto remembered = surroundings_.settings.recordForKey(Names::selectedIdentity))
        ui_->identities->setPlaceholderText(
            tr("%1 is gone: pick another").arg(QString::fromStdString(remembered->displaystring)));
}

Signing MainWindow::signing() const {
    const auto selected = identities_.selectedObjects();
    return {.doNotCodesign =
                surroundings_.settings.boolForKey(Names::doNotCodesign) || controller_.neverSigns(),
            .identity =
                selected.empty() ? std::nullopt : std::optional(selected.front().identitystring)};
}

void MainWindow::showExpectation() {
    ui_->expectation->setVisible(!controller_.isProcessing());
    ui_->expectation->setSigning(signing());
    if (controller_.isProcessing()) {
        ui_->expectation->forget(); // archives come while packages are processed
        return;
    }
    // Many entries may come in one turn of the event loop; they are looked at once.
    expectationDue_.start();
}

void MainWindow::showEntries() {
    const auto set = controller_.fSetOfFolders();
    if (set && !controller_.isProcessing())
        ui_->expectation->setEntries(set->allObjects());
}
