#pragma once

#include "app/identities/IdentityTool.h"

#include <QMenu>

/// The menu in which the user's own identities are kept, on systems that have no keychain of their
/// own. Main thread.
class IdentitiesMenu : public QMenu {
    Q_OBJECT
public:
    /// The dialogs lie on `window`. `tool` is the path of the program that keeps the identities.
    IdentitiesMenu(QWidget* window, std::string tool);

signals:
    /// The user has changed which identities there are.
    void identitiesChanged();
    /// A dialog has been closed.
    void closed();

private:
    template <typename Dialog>
    void add(const QString& title, const QString& name);
    template <typename Dialog>
    void open();

    QWidget* window_;
    IdentityTool tool_;
};
