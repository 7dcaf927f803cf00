#include "app/MyWebViewController.h"

#include "app/platform/NamedImage.h"

#include <QShortcut>
#include <QUrl>

#include <utility>

MyWebViewController::MyWebViewController(MainBundle bundle, QObject* parent)
    : QObject(parent), bundle_(std::move(bundle)) {}

MyWebViewController::~MyWebViewController() {
    delete ownView_;
}

QWidget* MyWebViewController::view() {
    if (!ownView_) {
        auto* viewer = new QTextBrowser;
        viewer->setObjectName(QStringLiteral("helpview"));
        viewer->setWindowTitle(tr("Kelpmoray Help"));
        viewer->setWindowIcon(applicationIcon());
        viewer->setAccessibleName(viewer->windowTitle());
        viewer->setAttribute(Qt::WA_QuitOnClose, false);
        viewer->setOpenExternalLinks(true);
        viewer->setFrameShape(QFrame::NoFrame);
        viewer->document()->setDocumentMargin(24.0);
        viewer->resize(620, 640);
        for (const auto key : {QKeySequence::Close, QKeySequence::Cancel})
            new QShortcut(key, viewer, viewer, &QWidget::close);
        ownView_ = viewer;
        ibMyWebView_ = viewer;
    }
    return ownView_;
}

void MyWebViewController::viewDidLoad() {}

void MyWebViewController::awakeFromNib() {}

void MyWebViewController::doLoadDoc(QObject*) {
    if (!ibMyWebView_)
        return;
    const auto path = bundle_.pathForResource("TestDocument", "html");
    if (!path)
        return;
    const QUrl page = QUrl::fromLocalFile(QString::fromStdString(*path));
    if (ibMyWebView_->source() == page)
        ibMyWebView_->reload();
    else
        ibMyWebView_->setSource(page);
}
