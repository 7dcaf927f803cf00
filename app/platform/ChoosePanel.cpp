#include "app/platform/ChoosePanel.h"

#include "app/platform/Sheet.h"
#include "core/platform/FileType.h"

#include <QDir>
#include <QFileSystemModel>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {

QString& lastDirectory() {
    static QString directory = QDir::homePath();
    return directory;
}

} // namespace

void ChoosePanel::beginSheet(const Settings& settings, QWidget* window, Completion completion) {
    if (window == nullptr || attachedSheet(window) != nullptr)
        return;
    ::beginSheet(new ChoosePanel(settings, std::move(completion)), window);
}

ChoosePanel::ChoosePanel(const Settings& settings, Completion completion)
    : files_(new QFileSystemModel(this)), list_(new QListView), path_(new QLineEdit),
      selection_(new QLabel), confirm_(new QPushButton(settings.prompt)) {
    setObjectName("choosePanel");
    setWindowTitle(settings.prompt);
    files_->setFilter(QDir::AllDirs | QDir::Files | QDir::NoDotAndDotDot);
    files_->setNameFilters({"*." + settings.allowedFileType});
    files_->setNameFilterDisables(true); // other files are shown, but cannot be picked
    files_->setReadOnly(true);
    files_->sort(0);
    list_->setModel(files_);
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    layOut(settings);

    connect(list_, &QListView::activated, this, &ChoosePanel::activate);
    connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ChoosePanel::selectionChanged);
    connect(path_, &QLineEdit::returnPressed, this, &ChoosePanel::openTypedPath);
    connect(confirm_, &QPushButton::clicked, this, &QDialog::accept);
    connect(this, &QDialog::finished, this, [this, completion = std::move(completion)](int result) {
        lastDirectory() = files_->rootPath();
        const bool accepted = result == QDialog::Accepted;
        completion(accepted ? confirmed : cancelled, accepted ? chosen() : LocationList{});
    });
    setDirectory(lastDirectory());
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
    selection_->setTextFormat(Qt::PlainText);
    confirm_->setObjectName("confirm");
    confirm_->setAutoDefault(false);
    auto* cancel = new QPushButton(tr("Cancel"));
    cancel->setObjectName("cancel");
    cancel->setAutoDefault(false);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);

    auto* where = new QHBoxLayout;
    where->addWidget(up);
    where->addWidget(path_, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(new QLabel(settings.nameFieldLabel + ':'));
    buttons->addWidget(selection_, 1);
    buttons->addWidget(cancel);
    buttons->addWidget(confirm_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(message);
    layout->addLayout(where);
    layout->addWidget(list_, 1);
    layout->addLayout(buttons);
    list_->setFocus();
    resize(520, 400);
}

void ChoosePanel::setDirectory(const QString& folder) {
    list_->setRootIndex(files_->setRootPath(folder));
    list_->selectionModel()->clear();
    path_->setText(folder);
    selectionChanged();
}

bool ChoosePanel::isPackage(const QModelIndex& index) const {
    const auto type = typeOfFile(files_->filePath(index).toStdString());
    return type && conformsToPackage(*type);
}

void ChoosePanel::activate(const QModelIndex& index) {
    if (isPackage(index)) {
        list_->setCurrentIndex(index);
        accept();
    } else if (files_->isDir(index)) {
        setDirectory(files_->filePath(index));
    }
}

void ChoosePanel::openTypedPath() {
    const QFileInfo typed(path_->text());
    const QModelIndex index = files_->index(typed.absoluteFilePath());
    if (!typed.isDir()) {
        path_->selectAll();
    } else if (isPackage(index)) {
        setDirectory(typed.absolutePath());
        list_->setCurrentIndex(index);
    } else {
        setDirectory(typed.absoluteFilePath());
    }
}

void ChoosePanel::selectionChanged() {
    QStringList names;
    for (const QModelIndex& index : list_->selectionModel()->selectedIndexes())
        names.push_back(files_->fileName(index));
    const QString text = names.isEmpty() ? QFileInfo(files_->rootPath()).fileName()
                                         : names.join(QStringLiteral(", "));
    selection_->setToolTip(text.toHtmlEscaped());
    selection_->setText(
        fontMetrics().elidedText(text, Qt::ElideMiddle, fontMetrics().averageCharWidth() * 30));
}

LocationList ChoosePanel::chosen() const {
    QModelIndexList indexes = list_->selectionModel()->selectedIndexes();
    // Nothing picked means the folder that is shown.
    if (indexes.isEmpty())
        indexes = {list_->rootIndex()};
    // By name, as the list is shown: the selection itself is in the order of the clicks.
    std::ranges::sort(indexes, {},
                      [this](const QModelIndex& index) { return files_->fileName(index); });
    LocationList urls;
    for (const QModelIndex& index : indexes)
        urls.emplace_back(FileUrl::fileURLWithPath(files_->filePath(index).toStdString()));
    return urls;
}
