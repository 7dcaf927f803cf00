#pragma once

#include "app/results/RunModel.h"

#include <QListView>

/// The packages of a run, two lines each: the name with the state's icon, word and time, and below
/// it what came of it or what went wrong. A double click or Return reveals; Ctrl+C copies the
/// message; the context menu, which Shift+F10 opens too, has these and the full output. Main
/// thread.
class ResultsList : public QListView {
    Q_OBJECT
public:
    explicit ResultsList(QWidget* parent = nullptr);

    /// Without packages it takes no room.
    void showRun(RunModel* model);
    /// Null without a current row.
    [[nodiscard]] const PackageRecord* currentPackage() const;
    void revealCurrent();
    void copyCurrent() const;
    /// Whether a script has run over the current package.
    [[nodiscard]] bool hasOutput() const;
    /// Nothing if there is none.
    void showOutputOfCurrent();

signals:
    /// The file browser is to show the archive's folder, or the package's.
    void revealWanted(const QString& path);

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    /// For the current package, at a place in the viewport.
    void showMenu(const QPoint& at);
};
