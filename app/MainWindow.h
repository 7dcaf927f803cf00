#pragma once

#include "app/ExpectationLine.h"
#include "app/MyWebViewController.h"
#include "app/Surroundings.h"
#include "app/ViewController.h"
#include "app/results/LauncherEntry.h"
#include "app/toolkit/ArrayController.h"

#include <QMainWindow>
#include <QTimer>

#include <memory>

class AppDelegate;
class IdentitiesMenu;

namespace Ui {
class MainWindow;
}

/// The one window: loads the interface description, connects its outlets and actions to the
/// controllers, and shows their properties. Main thread.
///
/// It stands empty at first. What is in it needs the desktop's fonts, which may take a while to
/// load, and comes when the window has been painted; then the controllers wake, which wait for the
/// identity tool.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(const Surroundings& surroundings, AppDelegate& delegate);
    ~MainWindow() override;

    /// Shows a sentence for as long as it takes to read. `path`, where the sentence names it, may
    /// be shortened. Main thread.
    void explain(const std::string& sentence, const std::string& path = "");

    /// Fills the window and wakes the controllers now, unless that is done.
    void load();
    [[nodiscard]] ViewController& controller() { return controller_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* object, QEvent* event) override;

private:
    void fill();
    void connectOutlets();
    void connectActions();
    void bindControls();
    void bindIdentities();
    void addIdentitiesMenu();
    void explainIdentities();
    void showHelp();
    void showAbout();
    void rememberFrame();
    void showRuns();
    void showProgress();
    void showExpectation();
    void showEntries();
    [[nodiscard]] Signing signing() const;
    void fillWaitingMenu();
    void removeWaiting(const std::string& entry);
    [[nodiscard]] std::vector<std::string> waiting() const;
    void showProperties();
    void drawIcons();

    Surroundings surroundings_;
    AppDelegate& delegate_;
    std::unique_ptr<Ui::MainWindow> ui_;
    ArrayController identities_;
    IdentitiesMenu* identitiesMenu_ = nullptr; // only where our own tool keeps the identities
    std::optional<std::string> asked_;         // the entry asked about last
    QTimer expectationDue_;
    LauncherEntry launcherEntry_;
    ViewController controller_;
    MyWebViewController help_;
    bool loaded_ = false;
};
