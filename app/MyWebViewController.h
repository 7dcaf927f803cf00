#pragma once

#include "core/MainBundle.h"

#include <QObject>
#include <QPointer>
#include <QTextBrowser>

/// Shows the help page, on demand. Main thread.
class MyWebViewController : public QObject {
    Q_OBJECT
public:
    explicit MyWebViewController(MainBundle bundle, QObject* parent = nullptr);
    ~MyWebViewController() override;

    /// The viewer; null while none is connected.
    [[nodiscard]] QTextBrowser* ibMyWebView() const { return ibMyWebView_; }
    void setIbMyWebView(QTextBrowser* view) { ibMyWebView_ = view; }

    /// The viewer in a window of its own, made and connected at the first call; may be given a
    /// parent. Closing the other windows ends the application though this one is open.
    [[nodiscard]] QWidget* view();

    void viewDidLoad();
    void awakeFromNib();
    /// Loads the help page, anew if it is shown already. Nothing happens without viewer or page.
    void doLoadDoc(QObject* sender);

private:
    MainBundle bundle_;
    QPointer<QTextBrowser> ibMyWebView_;
    QPointer<QTextBrowser> ownView_;
};
