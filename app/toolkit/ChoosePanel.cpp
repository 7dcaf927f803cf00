#include "app/toolkit/ChoosePanel.h"

#include "app/platform/NativeWindow.h"
#include "app/toolkit/Beep.h"
#include "app/toolkit/ElidedLabel.h"
#include "app/toolkit/Sheet.h"
#include "base/NeverDestroyed.h"
#include "core/Path.h"
#include "core/platform/FileType.h"

#include <QDir>
#include <QFileIconProvider>
#include <QFileSystemModel>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

/// Files and folders, of which only plain folders and packages of one type can be picked.
class ChoosePanel::Files : public QFileSystemModel {
public:
    Files(QString extension, QObject* parent)
        : QFileSystemModel(parent), extension_(std::move(extension)) {
        setFilter(QDir::AllDirs | QDir::Files | QDir::NoDotAndDotDot);
        setReadOnly(true);
        // The model's own provider has no icons on a desktop without a theme.
        static QFileIconProvider& icons = base::neverDestroyed<QFileIconProvider>();
        setIconProvider(&icons);
        sort(0);
    }

    [[nodiscard]] bool isPackage(const QModelIndex& index) const {
        const auto type = typeOfFile(filePath(index).toStdString());
        return type && conformsToPackage(*type);
    }
    [[nodiscard]] Qt::ItemFlags flags(const QModelIndex& index) const override {
        const bool canBePicked =
            isDir(index) &&
            (fileInfo(index).suffix().compare(extension_, Qt::CaseInsensitive) == 0 ||
             !isPackage(index));
        const Qt::ItemFlags all = QFileSystemModel::flags(index);
        return canBePicked ? all : all & ~(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    }

private:
    QString extension_;
};

void ChoosePanel::beginSheet(const Settings& settings, QWidget* window, Completion completion) {
    if (window == nullptr || hasAttachedSheet(window)) {
        playBeep();
        return;
    }
    if (!beginNativeChoosePanel(settings, window, completion))
        ::beginSheet(new ChoosePanel(settings, std::move(completion)), window);
}

ChoosePanel::ChoosePanel(const Settings& settings, Completion completion)
    : files_(new Files(settings.allowedFileType, this)), list_(new QListView), path_(new QLineEdit),
      problem_(new QLabel), selection_(new ElidedLabel),
      confirm_(new QPushButton(settings.prompt)) {
    setObjectName("choosePanel");
    setWindowTitle(settings.prompt);
    list_->setModel(files_);
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    layOut(settings);

    connect(list_, &QListView::activated, this, &ChoosePanel::activate);
    connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ChoosePanel::selectionChanged);
    path_->installEventFilter(this);
    list_->installEventFilter(this);
    connect(confirm_, &QPushButton::clicked, this, &QDialog::accept);
    connect(this, &QDialog::finished, this,
            [this, leftAt = settings.leftAt, completion = std::move(completion)](int result) {
                leftAt(files_->rootPath());
                const bool accepted = result == QDialog::Accepted;
                completion(accepted ? confirmed : cancelled, accepted ? chosen() : LocationList{});
            });
    setDirectory(QFileInfo(settings.folder).isDir() ? settings.folder : QDir::homePath());
}

void ChoosePanel::layOut(const Settings& settings) {
    auto* message = new QLabel(settings.message);
    auto* up = new QToolButton;
    up->setIcon(style()->standardIcon(QStyle::SP_FileDialogToParent));
    up->setToolTip(tr("Enclosing folder"));
    up->setAccessibleName(up->toolTip());
    connect(up, &QToolButton::clicked, this,
            [this] { setDirectory(QFileInfo(files_->rootPath()).path()); });
    path_->setObjectName("path");
    path_->setAccessibleName(tr("Folder"));
    list_->setObjectName("files");
    list_->setAccessibleName(tr("Files"));
    selection_->setObjectName("selection");
    problem_->setObjectName("problem");
    problem_->setTextFormat(Qt::PlainText);
    problem_->setWordWrap(true);
    problem_->hide();
    confirm_->setObjectName("confirm");
    confirm_->setDefault(true);
    auto* cancel = new QPushButton(tr("Cancel"));
    cancel->setObjectName("cancel");
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);

    auto* where = new QHBoxLayout;
    where->addWidget(up);
    where->addWidget(path_, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(new QLabel(settings.nameFieldLabel));
    buttons->addWidget(selection_, 1);
    buttons->addWidget(cancel);
    buttons->addWidget(confirm_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(message);
    layout->addLayout(where);
    layout->addWidget(problem_);
    layout->addWidget(list_, 1);
    layout->addLayout(buttons);
    list_->setFocus();
    resize(520, 400);
}

void ChoosePanel::setDirectory(const QString& folder) {
    list_->setRootIndex(files_->setRootPath(folder));
    list_->selectionModel()->clear();
    path_->setText(folder);
    problem_->hide();
    selectionChanged();
}

bool ChoosePanel::eventFilter(QObject* object, QEvent* event) {
    // Return opens what the path field or the list is at; it must not go on to the default button.
    const auto* key = event->type() == QEvent::KeyPress ? static_cast<QKeyEvent*>(event) : nullptr;
    if (key == nullptr || (key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter))
        return QDialog::eventFilter(object, event);
    if (object == path_)
        openTypedPath();
    else if (list_->currentIndex().isValid())
        activate(list_->currentIndex());
    else if (!selectedRows().isEmpty())
        accept();
    return true;
}

void ChoosePanel::activate(const QModelIndex& index) {
    if (!files_->flags(index).testFlag(Qt::ItemIsEnabled))
        return;
    const bool isPlace = files_->isDir(index) && !files_->isPackage(index);
    if (!list_->selectionModel()->isSelected(index))
        list_->setCurrentIndex(index);
    if (isPlace && selectedRows().size() == 1)
        setDirectory(files_->filePath(index));
    else
        accept();
}

void ChoosePanel::openTypedPath() {
    // A relative path counts from the folder that is shown.
    const QString text = path_->text().startsWith('~')
                             ? path_->text()
                             : QDir(files_->rootPath()).absoluteFilePath(path_->text());
    const QFileInfo typed(QString::fromStdString(standardizedPath(text.toStdString())));
    const QModelIndex index = files_->index(typed.absoluteFilePath());
    if (!typed.isDir()) {
        problem_->setText((typed.exists() ? tr("%1 is a file: type the path of a folder.")
                                          : tr("There is no %1: type the path of a folder."))
                              .arg(typed.filePath()));
        problem_->show();
        path_->selectAll();
    } else if (files_->isPackage(index)) {
        setDirectory(typed.absolutePath());
        list_->setCurrentIndex(index);
    } else {
        setDirectory(typed.absoluteFilePath());
    }
}

void ChoosePanel::selectionChanged() {
    QStringList names;
    for (const QModelIndex& index : selectedRows())
        names.push_back(files_->fileName(index));
    const QString text = names.isEmpty() ? QFileInfo(files_->rootPath()).fileName()
                                         : names.join(QStringLiteral(", "));
    selection_->setFullText(text);
}

QModelIndexList ChoosePanel::selectedRows() const {
    QModelIndexList rows = list_->selectionModel()->selectedIndexes();
    // Selecting all selects the columns too that a list does not show.
    rows.removeIf([](const QModelIndex& index) { return index.column() != 0; });
    // As the list shows them: the selection itself is in the order of the clicks.
    std::ranges::sort(rows, {}, &QModelIndex::row);
    return rows;
}

LocationList ChoosePanel::chosen() const {
    QModelIndexList indexes = selectedRows();
    // Nothing picked means the folder that is shown.
    if (indexes.isEmpty())
        indexes = {list_->rootIndex()};
    LocationList urls;
    for (const QModelIndex& index : indexes)
        urls.emplace_back(FileUrl::fileURLWithPath(files_->filePath(index).toStdString()));
    return urls;
}
