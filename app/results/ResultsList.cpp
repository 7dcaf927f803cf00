#include "app/results/ResultsList.h"

#include "app/results/ResultDelegate.h"
#include "app/toolkit/ShownText.h"
#include "core/Path.h"
#include "core/RunSummary.h"

#include <QClipboard>
#include <QContextMenuEvent>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QMenu>
#include <QPlainTextEdit>
#include <QVBoxLayout>

ResultsList::ResultsList(QWidget* parent) : QListView(parent) {
    setItemDelegate(new ResultDelegate(this));
    setUniformItemSizes(true); // or thousands would each be measured
    setVerticalScrollMode(ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setEditTriggers(NoEditTriggers);
    setAccessibleName(tr("Results"));
    connect(this, &QListView::activated, this, &ResultsList::revealCurrent);
}

void ResultsList::showRun(RunModel* model) {
    setModel(model);
    const auto takeNoRoomInVain = [this, model] { setVisible(model->rowCount() > 0); };
    takeNoRoomInVain();
    connect(model, &RunModel::modelReset, this, takeNoRoomInVain);
    // Both later: by then the view has laid out its rows.
    connect(model, &RunModel::modelReset, this, &QListView::scrollToTop, Qt::QueuedConnection);
    connect(model, &RunModel::rowsInserted, this, takeNoRoomInVain);
    connect(model, &RunModel::rowsInserted, this, &QListView::scrollToBottom, Qt::QueuedConnection);
}

const PackageRecord* ResultsList::currentPackage() const {
    const auto* run = qobject_cast<RunModel*>(model());
    return run != nullptr && currentIndex().isValid() ? &run->package(currentIndex()) : nullptr;
}

void ResultsList::revealCurrent() {
    if (const PackageRecord* package = currentPackage())
        emit revealWanted(QString::fromStdString(package->path));
}

void ResultsList::copyCurrent() const {
    if (const PackageRecord* package = currentPackage())
        QGuiApplication::clipboard()->setText(QString::fromStdString(messageOf(*package)));
}

void ResultsList::showOutputOfCurrent() {
    const PackageRecord* package = currentPackage();
    if (package == nullptr)
        return;
    QString output;
    for (const StepRecord& step : package->steps)
        output +=
            shownText(step.script + ":\n" + (step.output.empty() ? step.lastLine : step.output))
                .trimmed() +
            "\n\n";
    auto* dialog = new QDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setObjectName("fullOutput");
    dialog->setWindowTitle(tr("Output for %1").arg(shownLine(lastPathComponent(package->path))));
    auto* text = new QPlainTextEdit(output.trimmed());
    text->setReadOnly(true);
    text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    text->setAccessibleName(dialog->windowTitle());
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::close);
    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(text);
    layout->addWidget(buttons);
    dialog->resize(640, 360);
    dialog->show();
}

void ResultsList::contextMenuEvent(QContextMenuEvent* event) {
    if (event->reason() == QContextMenuEvent::Mouse)
        setCurrentIndex(indexAt(event->pos()));
    if (currentPackage() == nullptr)
        return;
    QMenu menu(this);
    menu.addAction(tr("&Reveal"), this, &ResultsList::revealCurrent);
    menu.addAction(tr("&Copy Message"), this, &ResultsList::copyCurrent);
    menu.addAction(tr("Show Full &Output"), this, &ResultsList::showOutputOfCurrent);
    const bool byMouse = event->reason() == QContextMenuEvent::Mouse;
    menu.exec(byMouse ? event->globalPos()
                      : viewport()->mapToGlobal(visualRect(currentIndex()).center()));
}

void ResultsList::keyPressEvent(QKeyEvent* event) {
    if (event->matches(QKeySequence::Copy))
        copyCurrent();
    else
        QListView::keyPressEvent(event);
}
