#include "app/MainWindow.h"

#include "app/AboutBox.h"
#include "app/AppDelegate.h"
#include "app/Names.h"
#include "app/identities/IdentitiesMenu.h"
#include "app/toolkit/Beep.h"
#include "app/toolkit/NamedImage.h"
#include "app/toolkit/NotificationCenter.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SettingsStore.h"
#include "app/toolkit/Sheet.h"
#include "app/toolkit/ShownText.h"
#include "app/toolkit/WindowFrame.h"
#include "app/toolkit/WindowLevel.h"
#include "core/Log.h"
#include "ui_MainWindow.h"

#include <QApplication>
#include <QEvent>
#include <QFontInfo>
#include <QMenu>
#include <QPainter>

#include <algorithm>
#include <utility>

namespace {

constexpr int applicationIconSize = 64;

/// A ring that fades out along its way, in the colour of highlighted things.
QIcon spinnerIcon(const QPalette& palette, int size, qreal pixelRatio) {
    QPixmap pixmap(QSize(size, size) * pixelRatio);
    pixmap.setDevicePixelRatio(pixelRatio);
    pixmap.fill(Qt::transparent);
    QConicalGradient gradient(size / 2.0, size / 2.0, 90);
    QColor colour = palette.color(QPalette::Highlight);
    gradient.setColorAt(1, colour);
    colour.setAlpha(0);
    gradient.setColorAt(0, colour);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(gradient, size / 8.0));
    const qreal inset = size / 8.0;
    painter.drawEllipse(QRectF(inset, inset, size - 2 * inset, size - 2 * inset));
    QIcon icon;
    icon.addPixmap(pixmap);
    return icon;
}

Surroundings explainedBy(MainWindow& window, Surroundings surroundings) {
    surroundings.explain = [&window](const std::string& sentence, const std::string& path) {
        window.explain(sentence, path);
    };
    return surroundings;
}

} // namespace

MainWindow::MainWindow(const Surroundings& surroundings, AppDelegate& delegate)
    : surroundings_(explainedBy(*this, surroundings)), delegate_(delegate),
      ui_(std::make_unique<Ui::MainWindow>()), controller_(surroundings_),
      help_(surroundings.bundle) {
    setWindowTitle(tr("Kelpmoray"));
    setMinimumSize(420, 300);
    qApp->installEventFilter(this);
    resize(520, 400);
    setWindowFrame(*this, surroundings_.settings.stringForKey(Names::windowFrame).value_or(""));
    connect(qApp, &QCoreApplication::aboutToQuit, this, &MainWindow::rememberFrame);
}

MainWindow::~MainWindow() = default;

void MainWindow::load() {
    if (loaded_)
        return;
    loaded_ = true;
    fill();
    repaint(); // the identity tool takes its time
    bindIdentities();
    controller_.viewDidLoad();
    ui_->dragDropView->awakeFromNib();
    controller_.awakeFromNib();
}

void MainWindow::fill() {
    ui_->setupUi(this);
    connectOutlets();
    bindControls();
    connectActions();
    showRuns();
    setWindowIcon(applicationIcon());
    drawIcons();
    QFont larger = ui_->invitation->font();
    larger.setPointSizeF(QFontInfo(larger).pointSizeF() * 1.25);
    ui_->invitation->setFont(larger);
    showProperties();
    // What is added to a window that is seen would be shown one turn later only.
    for (QWidget* part : {static_cast<QWidget*>(ui_->menus), ui_->view})
        part->show();
}

void MainWindow::connectOutlets() {
    controller_.setView(ui_->view);
    controller_.setIbDragDropView(ui_->dragDropView);
    controller_.setIbListOfIdentities(&identities_);
    ui_->dragDropView->setDelegate(&delegate_);
    delegate_.setFMainViewController(&controller_);
}

void MainWindow::bindControls() {
    surroundings_.settings.bind(*ui_->doNotCodesign, Names::doNotCodesign);

    const auto showVersion = [this] {
        ui_->version->setFullText(QString::fromStdString(
            surroundings_.settings.stringForKey(Names::version).value_or("")));
    };
    showVersion();
    connect(&surroundings_.settings, &SettingsStore::changed, this,
            [showVersion](const QString& key) {
                if (key == Names::version)
                    showVersion();
            });
    connect(&controller_, &ViewController::propertyChanged, this, &MainWindow::showProperties);
}

void MainWindow::connectActions() {
    const auto choose = [this] { controller_.ibChangePath(sender()); };
    connect(ui_->choose, &QPushButton::clicked, this, choose);
    connect(ui_->chooseAction, &QAction::triggered, this, choose);
    connect(ui_->button1, &QPushButton::clicked, this, [this] { controller_.doButton1(sender()); });
    connect(ui_->identities, &QComboBox::activated, this,
            [this] { controller_.ibClickedOnIdentityPopup(sender()); });
    connect(ui_->doNotCodesign, &QCheckBox::clicked, this,
            [this] { controller_.ibClickedOnCheckButton(sender()); });
    connect(ui_->progressview, &QPushButton::clicked, this,
            [this] { controller_.ibTestSpin(sender()); });
    connect(ui_->quitAction, &QAction::triggered, this, [this] { surroundings_.terminate(); });
    connect(ui_->helpAction, &QAction::triggered, this, &MainWindow::showHelp);
    connect(ui_->lastRunAction, &QAction::triggered, this, [this] { surroundings_.showLastRun(); });
    connect(ui_->aboutAction, &QAction::triggered, this, &MainWindow::showAbout);
    connect(ui_->stop, &QPushButton::clicked, this, [this] {
        controller_.stopProcessing();
        ui_->stop->setEnabled(false);
    });
    connect(ui_->dragDropView, &MyDragDropView::dropped, this,
            [this](const LocationList& locations) {
                for (const LocationItem& location : locations)
                    controller_.explainRefusal(location);
            });
}

void MainWindow::showRuns() {
    ui_->results->showRun(&surroundings_.runs.model());
    connect(ui_->results, &ResultsList::revealWanted, this, [this](const QString& path) {
        controller_.doRevealItem(LocationItem(path.toStdString()));
    });
    connect(&surroundings_.runs, &RunReporter::progressChanged, this, &MainWindow::showProgress);
    auto* menu = new QMenu(ui_->waiting);
    ui_->waiting->setMenu(menu);
    connect(menu, &QMenu::aboutToShow, this, &MainWindow::fillWaitingMenu);
    connect(&identities_, &ArrayController::selectionChanged, this, &MainWindow::showExpectation);
    connect(&surroundings_.settings, &SettingsStore::changed, this, &MainWindow::showExpectation);
    expectationDue_.setSingleShot(true);
    connect(&expectationDue_, &QTimer::timeout, this, &MainWindow::showEntries);
    connect(ui_->notice, &Notice::appearanceChanged, this, &MainWindow::showProgress);
    connect(&surroundings_.runs, &RunReporter::recordFailed, this, [this](const QString& why) {
        explain("The results of this run are not kept: " + why.toStdString());
    });
}

void MainWindow::showProgress() {
    const RunReporter& runs = surroundings_.runs;
    const bool hasResults = surroundings_.runs.model().rowCount() > 0;
    const bool hasNotice = !ui_->notice->isHidden(); // a small window has no room for all
    ui_->applicationIcon->setVisible(!hasResults && !hasNotice);
    ui_->invitation->setVisible(!hasNotice);
    ui_->progressArea->setVisible(controller_.isProcessing() || !runs.progressText().isEmpty());
    ui_->progressBar->setValue(static_cast<int>(1000 * runs.share()));
    ui_->stepLine->setFullText(runs.progressText());
    launcherEntry_.show(controller_.isProcessing() ? std::optional(runs.share()) : std::nullopt);
}

std::vector<std::string> MainWindow::waiting() const {
    const auto set = controller_.fSetOfFolders();
    std::vector<std::string> entries = set ? set->allObjects() : std::vector<std::string>{};
    std::erase(entries, controller_.entryAtWork());
    return entries;
}

void MainWindow::fillWaitingMenu() {
    QMenu& menu = *ui_->waiting->menu();
    menu.clear();
    const std::vector<std::string> entries = waiting();
    for (const std::string& entry : entries) {
        const QString path = fontMetrics().elidedText(shownLine(entry), Qt::ElideMiddle, 400);
        menu.addAction(tr("Remove %1").arg(QString(path).replace('&', "&&")), this,
                       [this, entry] { removeWaiting(entry); });
    }
    menu.addSeparator();
    menu.addAction(tr("&Clear All"), this, [this, entries] {
        for (const std::string& entry : entries)
            removeWaiting(entry);
    });
}

void MainWindow::removeWaiting(const std::string& entry) {
    controller_.removeWaiting(entry);
    ui_->notice->forget(entry);
}

void MainWindow::explain(const std::string& sentence, const std::string& path) {
    ui_->notice->explain(sentence, path);
}

void MainWindow::showAbout() {
    auto* about = new AboutBox(ui_->version->fullText(), this);
    setWindowLevel(about, statusWindowLevel); // or this window covers it
    about->show();
}

void MainWindow::rememberFrame() {
    surroundings_.settings.setString(Names::windowFrame, windowFrameText(*this));
    surroundings_.settings.synchronize();
}

void MainWindow::showHelp() {
    QWidget* view = help_.view();
    help_.doLoadDoc(sender());
    if (help_.ibMyWebView()->source().isEmpty()) {
        playBeep();
        logEvent("help: the page is not in %@, install Kelpmoray again",
                 surroundings_.bundle.resourcesFolder);
        return;
    }
    setWindowLevel(view, statusWindowLevel); // or this window covers it
    view->show();
    activateIgnoringOtherApps(view);
}

void MainWindow::showProperties() {
    const bool busy = controller_.fButton1Busy();
    const int count = controller_.fNumberOfFoldersToProcess().value_or(0);
    // The one at work is still counted.
    const int waitingCount = count - (controller_.isProcessing() && count > 0 ? 1 : 0);
    ui_->busyState->setText(busy ? QString() : tr("Ready"));
    ui_->busyState->setVisible(!busy);
    ui_->progressLine->setFullText(
        busy ? QString::fromStdString(controller_.fProgressString1().value_or("")) : QString());
    ui_->folderCount->setText(waitingCount == 0   ? QString()
                              : waitingCount == 1 ? tr("1 folder waiting")
                                                  : tr("%1 folders waiting").arg(waitingCount));
    ui_->button1->setEnabled(count > 0 && !controller_.isProcessing());
    ui_->waiting->setVisible(waitingCount > 0);
    ui_->stop->setVisible(controller_.isProcessing());
    if (!controller_.isProcessing())
        ui_->stop->setEnabled(true);
    ui_->notice->keep(controller_.stalledAt());
    showProgress();
    // The question about an entry looks at the disk, and so does what is said behind it.
    const auto asked = controller_.fSearchPath();
    if (std::exchange(asked_, asked) != asked)
        ui_->expectation->forget();
    showExpectation();
    ui_->progressview->setVisible(busy);
    // The signer must not change in the middle of a folder.
    ui_->identityArea->setEnabled(!controller_.isProcessing());
    if (identitiesMenu_ != nullptr)
        identitiesMenu_->setEnabled(!controller_.isProcessing());
}

void MainWindow::drawIcons() {
    ui_->progressview->setIcon(
        spinnerIcon(palette(), ui_->progressview->iconSize().width(), devicePixelRatioF()));
    ui_->applicationIcon->setPixmap(applicationIcon().pixmap(applicationIconSize));
}

void MainWindow::paintEvent(QPaintEvent* event) {
    QMainWindow::paintEvent(event);
    if (!loaded_)
        MainQueue::async(this, [this] { load(); });
}

bool MainWindow::eventFilter(QObject* object, QEvent* event) {
    // The size of every window is of interest, not only of this one.
    if (event->type() == QEvent::Resize && object->isWidgetType()) {
        const auto* widget = static_cast<QWidget*>(object);
        if (widget->isWindow() && widget->windowType() != Qt::ToolTip &&
            widget->windowType() != Qt::Popup)
            surroundings_.notifications.post(Names::windowDidResize);
    }
    return event->type() == QEvent::Wheel && object == ui_->identities &&
           !ui_->identities->hasFocus();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    rememberFrame();
    QMainWindow::closeEvent(event);
}

void MainWindow::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (loaded_ && event->type() == QEvent::PaletteChange)
        drawIcons();
}
