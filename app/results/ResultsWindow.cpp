#include "app/results/ResultsWindow.h"

#include "app/toolkit/Queues.h"
#include "app/toolkit/ShownText.h"
#include "core/Path.h"
#include "core/RunSummary.h"

#include <QDateTime>
#include <QHBoxLayout>
#include <QPointer>
#include <QShortcut>
#include <QVBoxLayout>

#include <algorithm>

namespace {

/// When the run started, from the name of its record.
QString timeOf(const std::string& file) {
    const QString name = QString::fromStdString(lastPathComponent(file)).left(19);
    const QDateTime started = QDateTime::fromString(name + 'Z', "yyyy-MM-ddTHH-mm-ss'Z'");
    if (!started.isValid())
        return shownLine(lastPathComponent(file));
    return QLocale().toString(QDateTime(started.date(), started.time(), Qt::UTC).toLocalTime(),
                              QLocale::ShortFormat);
}

QString stateOf(const RecordedRun& run) {
    QString text = QString::fromStdString(summaryOf(run.packages));
    if (!run.trouble.empty())
        text += ResultsWindow::tr(" This run could not be written down.");
    if (run.underWay)
        return text + ResultsWindow::tr(" The run is still under way.");
    const auto has = [&run](PackageState state) {
        return std::ranges::find(run.packages, state, &PackageRecord::state) != run.packages.end();
    };
    if (has(PackageState::Interrupted) || (has(PackageState::Left) && !run.finished))
        return text + ResultsWindow::tr(" The run was interrupted.");
    return has(PackageState::Left) ? text + ResultsWindow::tr(" The run was stopped.") : text;
}

QString unreadable(const std::string& file) {
    const QString path = shownLine(file);
    return isDirectory(file) ? ResultsWindow::tr("The run could not be written down in %1. The "
                                                 "system log tells why.")
                                   .arg(path)
                             : ResultsWindow::tr("This record cannot be read: %1. It was cut or "
                                                 "changed, or its permissions do not allow it.")
                                   .arg(path);
}

} // namespace

ResultsWindow::ResultsWindow(std::string folder, Outside outside)
    : folder_(std::move(folder)), outside_(std::move(outside)), runs_(new QComboBox),
      summary_(new QLabel), list_(new ResultsList), message_(new QPlainTextEdit),
      reveal_(new QPushButton(tr("&Reveal"))), copy_(new QPushButton(tr("&Copy"))),
      output_(new QPushButton(tr("Show Full &Output"))),
      retry_(new QPushButton(tr("Retry &Failed"))) {
    setObjectName("resultsWindow");
    setWindowTitle(tr("Kelpmoray Results"));
    layOut();
    list_->showRun(&model_);
    connectParts();
}

void ResultsWindow::connectParts() {
    connect(&summarizing_, &QTimer::timeout, this, &ResultsWindow::summarizeNext);
    connect(runs_, &QComboBox::currentIndexChanged, this,
            [this] { showRun(runs_->currentData().toByteArray().toStdString()); });
    connect(list_, &ResultsList::revealWanted, this, &ResultsWindow::reveal);
    connect(list_->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &ResultsWindow::showCurrent);
    connect(reveal_, &QPushButton::clicked, list_, &ResultsList::revealCurrent);
    connect(copy_, &QPushButton::clicked, list_, &ResultsList::copyCurrent);
    connect(output_, &QPushButton::clicked, list_, &ResultsList::showOutputOfCurrent);
    connect(retry_, &QPushButton::clicked, this, &ResultsWindow::retryFailed);
    for (const QKeySequence& keys :
         {QKeySequence(QKeySequence::Quit), QKeySequence(QKeySequence::Close),
          QKeySequence(Qt::Key_Escape)})
        connect(new QShortcut(keys, this), &QShortcut::activated, this, &QWidget::close);
}

void ResultsWindow::showRecord(const std::string& file) {
    {
        const QSignalBlocker blocker(runs_);
        std::vector<std::string> files = recordedRuns(folder_);
        auto shown = file.empty() ? files.begin() : std::ranges::find(files, file);
        if (!file.empty() && shown == files.end())
            shown = files.insert(files.begin(), file);
        runs_->clear();
        for (const std::string& each : files)
            runs_->addItem(timeOf(each), QByteArray::fromStdString(each));
        runs_->setCurrentIndex(static_cast<int>(shown - files.begin()));
    }
    runs_->setVisible(runs_->count() > 0);
    showRun(runs_->currentData().toByteArray().toStdString());
    list_->setFocus(); // without a row it is not shown
    summarized_ = 0;
    summarizing_.start();
}

void ResultsWindow::summarizeNext() {
    // One run in a turn of the event loop: each may have thousands of packages.
    if (summarized_ == runs_->count())
        return summarizing_.stop();
    const std::string file = runs_->itemData(summarized_).toByteArray().toStdString();
    const auto run = readRun(file);
    runs_->setItemText(summarized_++, timeOf(file) + " · " +
                                          (run ? QString::fromStdString(summaryOf(run->packages))
                                               : tr("cannot be read")));
}

void ResultsWindow::layOut() {
    runs_->setObjectName("runs");
    runs_->setAccessibleName(tr("Run"));
    runs_->setToolTip(tr("This run, and earlier ones"));
    runs_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    summary_->setObjectName("summary");
    QFont bold = summary_->font();
    bold.setBold(true);
    summary_->setFont(bold);
    summary_->setTextFormat(Qt::PlainText);
    summary_->setWordWrap(true);
    summary_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    message_->setObjectName("message");
    message_->setAccessibleName(tr("Message"));
    message_->setReadOnly(true);
    message_->setTabChangesFocus(true);
    message_->setFrameShape(QFrame::NoFrame);
    message_->viewport()->setAutoFillBackground(false);
    message_->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    constexpr int lines = 4;
    message_->setFixedHeight(lines * message_->fontMetrics().lineSpacing() +
                             2 * static_cast<int>(message_->document()->documentMargin()));
    list_->setObjectName("results");
    retry_->setObjectName("retry");
    auto* buttons = new QHBoxLayout;
    for (QPushButton* button : {reveal_, copy_, output_})
        buttons->addWidget(button);
    buttons->addStretch();
    buttons->addWidget(retry_);
    // A main window, since screen readers take no other widget for a window.
    auto* content = new QWidget;
    setCentralWidget(content);
    auto* layout = new QVBoxLayout(content);
    layout->addWidget(runs_);
    layout->addWidget(summary_);
    layout->addWidget(list_, 1);
    layout->addWidget(message_);
    layout->addLayout(buttons);
    setMinimumSize(420, 300);
    resize(620, 440);
}

void ResultsWindow::showRun(const std::string& file) {
    const auto run = readRun(file);
    model_.setPackages(run ? run->packages : std::vector<PackageRecord>{});
    model_.putFailedFirst();
    summary_->setText(run            ? stateOf(*run)
                      : file.empty() ? tr("No run is recorded yet. Process a package first.")
                                     : unreadable(file));
    trouble_ = run ? shownLine(run->trouble) : QString();
    offerRetry(run);
    list_->setCurrentIndex(model_.index(0, 0));
    showCurrent();
}

void ResultsWindow::offerRetry(const std::optional<RecordedRun>& run) {
    const std::vector<std::string> packages =
        run ? packagesToRetry(*run) : std::vector<std::string>{};
    const bool onlyFailed =
        run && packages.size() <=
                   static_cast<std::size_t>(std::ranges::count_if(run->packages, hasFailed));
    retry_->setEnabled(!packages.empty());
    retry_->setText(onlyFailed || packages.empty() ? tr("Retry &Failed") : tr("Process Re&st"));
}

void ResultsWindow::showCurrent() {
    const PackageRecord* package = list_->currentPackage();
    for (QPushButton* button : {reveal_, copy_, output_})
        button->setEnabled(package != nullptr);
    QString text;
    if (package != nullptr) {
        const auto failure = failureOf(*package);
        text = shownText(failure ? failure->error + "\n" + failure->remedy
                                 : messageOf(*package).substr(package->path.size() + 1))
                   .trimmed();
    }
    message_->setPlainText(trouble_.isEmpty() ? text : text + '\n' + trouble_);
}

void ResultsWindow::reveal(const QString& path) {
    outside_.reveal(path.toStdString(), [self = QPointer(this)](const std::string& sentence) {
        MainQueue::async([self, sentence] {
            if (self)
                self->message_->setPlainText(shownText(sentence));
        });
    });
}

void ResultsWindow::retryFailed() {
    const std::string failure = outside_.retry(runs_->currentData().toByteArray().toStdString());
    message_->setPlainText(shownText(failure));
    if (failure.empty())
        close();
}
