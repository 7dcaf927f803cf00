// A window from which the folders on its command line can be dragged; its log says when a drop
// would be taken and what became of it.

#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QMouseEvent>
#include <QUrl>
#include <QWidget>

namespace {

class DragSource : public QWidget {
protected:
    void mousePressEvent(QMouseEvent*) override {
        QList<QUrl> urls;
        for (const QString& path : QCoreApplication::arguments().mid(1))
            urls.push_back(QUrl::fromLocalFile(path));
        auto* locations = new QMimeData;
        locations->setUrls(urls);
        auto* drag = new QDrag(this);
        drag->setMimeData(locations);
        connect(drag, &QDrag::actionChanged, drag, [](Qt::DropAction action) {
            qInfo("%s", action == Qt::IgnoreAction ? "not here" : "would be taken");
        });
        const Qt::DropAction action = drag->exec(Qt::CopyAction | Qt::MoveAction);
        qInfo("%s", action == Qt::CopyAction ? "copied" : "not copied");
    }
};

} // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    DragSource window;
    window.setWindowTitle("Drag source");
    window.setGeometry(0, 0, 150, 150);
    window.show();
    return QApplication::exec();
}
