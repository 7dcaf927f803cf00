#pragma once

#include "app/MyWebViewController.h"
#include "app/ViewController.h"
#include "app/platform/ArrayController.h"

#include <QMainWindow>

#include <memory>

class AppDelegate;

namespace Ui {
class MainWindow;
}

/// The one window: loads the interface description, connects its outlets and actions to the
/// controllers, and shows their properties. Main thread.
///
/// The controllers wake once the window has been painted, since they wait for the identity tool: a
/// person sees the window before that.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(const ViewController::Surroundings& surroundings, AppDelegate& delegate);
    ~MainWindow() override;

    /// Wakes the controllers now, unless they are awake.
    void load();
    [[nodiscard]] ViewController& controller() { return controller_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void connectOutlets(AppDelegate& delegate);
    void connectActions();
    void bindControls();
    void bindIdentities();
    void showProperties();
    void drawIcons();

    ViewController::Surroundings surroundings_;
    std::unique_ptr<Ui::MainWindow> ui_;
    ArrayController identities_;
    ViewController controller_;
    MyWebViewController help_;
    bool loaded_ = false;
};
