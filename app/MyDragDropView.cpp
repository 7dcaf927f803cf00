#include "app/MyDragDropView.h"

#include "app/AppDelegate.h"
#include "app/toolkit/DraggingPasteboard.h"
#include "app/toolkit/Queues.h"
#include "core/Log.h"
#include "core/Path.h"
#include "core/platform/FileType.h"

#include <QDropEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QPointer>

namespace {

constexpr const char* className = "MyDragDropView";

const char* typeIdentifier(FileType type) {
    switch (type) {
    case FileType::Folder:
        return "public.folder";
    case FileType::ApplicationBundle:
        return "com.apple.application-bundle";
    case FileType::Package:
        return "com.apple.package";
    case FileType::Volume:
        return "public.volume";
    case FileType::Data:
        break;
    }
    return "public.data";
}

/// The location's type, which is logged.
std::optional<FileType> classified(const std::string& path) {
    const std::optional<FileType> type = typeOfFile(path);
    logEvent("found utiType = %@", type ? std::optional(typeIdentifier(*type)) : std::nullopt);
    return type;
}

void logIgnored(const std::string& item) {
    logEvent("INVALID Item will be ignored => %@", item);
}

LocationList validUrls(const LocationList& urls) {
    LocationList valid;
    for (const LocationItem& url : urls) {
        const std::optional<std::string> path = pathOf(url);
        const std::optional<FileType> type = classified(path.value_or(""));
        if (type == FileType::Folder)
            logEvent("OK to process Folder...%@", path);
        else if (type == FileType::ApplicationBundle)
            logEvent("OK to process application bundle...%@", path);
        else {
            logIgnored(lastPathComponent(path ? *path : formatted("%@", url)));
            continue;
        }
        valid.emplace_back(FileUrl::fileURLWithPath(*path));
    }
    return valid;
}

LocationList validFilenames(const std::vector<std::string>& paths) {
    LocationList valid;
    for (const std::string& path : paths) {
        const std::optional<FileType> type = classified(path);
        if (type == FileType::Folder)
            logEvent("OK to process Folder...");
        else if (type == FileType::ApplicationBundle)
            logEvent("OK to process application bundle...");
        else {
            logIgnored(lastPathComponent(path));
            continue;
        }
        valid.emplace_back(path);
    }
    return valid;
}

} // namespace

MyDragDropView::MyDragDropView(QWidget* parent) : QWidget(parent) {}

void MyDragDropView::logStep(const char* methodName) const {
    logEvent("[%@ %@]", className, methodName);
}

void MyDragDropView::highlightLater(bool highlighted, bool redraw) {
    MainQueue::async(this, [this, highlighted, redraw] {
        setIsHighlighted(highlighted);
        if (redraw)
            update();
    });
}

void MyDragDropView::awakeFromNib() {
    logStep("awakeFromNib");
    setAcceptDrops(true);
}

void MyDragDropView::draggingEntered(const DraggingPasteboard& pasteboard) {
    logStep("draggingEntered:");
    if (!pasteboard.filenames()) {
        logEvent("[%@ %@]  Invalid items.. ", className, "draggingEntered:");
        return;
    }
    for (const std::string& path : *pasteboard.filenames()) {
        const std::optional<FileType> type = typeOfFile(path);
        for (const auto conforms : {conformsToFolder, conformsToPackage}) {
            if (type && conforms(*type)) {
                highlightLater(true, true);
                return;
            }
            highlightLater(false, false);
        }
    }
}

void MyDragDropView::draggingExited() {
    logStep("draggingExited:");
    highlightLater(false, true);
}

bool MyDragDropView::prepareForDragOperation() {
    logStep("prepareForDragOperation:");
    return true;
}

bool MyDragDropView::performDragOperation(const DraggingPasteboard& pasteboard) {
    logStep("performDragOperation:");
    doTheStuff(pasteboard);
    return true;
}

void MyDragDropView::concludeDragOperation() {
    logStep("concludeDragOperation:");
}

void MyDragDropView::draggingEnded() {
    logStep("draggingEnded:");
    highlightLater(false, true);
}

void MyDragDropView::doTheStuff(const DraggingPasteboard& pasteboard) {
    highlightLater(false, true);
    logEvent("pboad types = %@", pasteboard.types());
    LocationList validItems;
    if (pasteboard.urls())
        validItems = validUrls(*pasteboard.urls());
    else if (pasteboard.filenames())
        validItems = validFilenames(*pasteboard.filenames());
    logEvent("validitems = %@", validItems);
    if (pasteboard.urls())
        emit dropped(*pasteboard.urls());
    if (delegate_ != nullptr)
        delegate_->applicationOpenURLs(validItems);
}

void MyDragDropView::dragEnterEvent(QDragEnterEvent* event) {
    const DraggingPasteboard pasteboard(*event->mimeData());
    if (pasteboard.types().empty())
        return;
    draggingEntered(pasteboard);
    // A copy if the source allows one: after a move it would remove what was dropped.
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void MyDragDropView::dragMoveEvent(QDragMoveEvent* event) {
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void MyDragDropView::dragLeaveEvent(QDragLeaveEvent*) {
    draggingExited();
    draggingEnded();
}

void MyDragDropView::dropEvent(QDropEvent* event) {
    event->setDropAction(Qt::CopyAction);
    event->accept();
    const DraggingPasteboard pasteboard(*event->mimeData());
    if (prepareForDragOperation() && performDragOperation(pasteboard))
        concludeDragOperation();
    draggingEnded();
}

void MyDragDropView::paintEvent(QPaintEvent* event) {
    QWidget::paintEvent(event);
    if (!isHighlighted_)
        return;
    logEvent("[%@ %@] isHighlighted = YES", className, "drawRect:");
    constexpr qreal lineWidth = 5.0;
    QPainter painter(this);
    painter.setPen(QPen(Qt::blue, lineWidth, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
    painter.drawRect(event->rect());
    // Blue is hard to see in a dark window: a line in the colour of texts goes along it.
    constexpr int inset = 3; // half of the blue line lies outside
    painter.setPen(QPen(palette().color(QPalette::WindowText), 1.0, Qt::SolidLine, Qt::SquareCap,
                        Qt::MiterJoin));
    painter.drawRect(event->rect().adjusted(inset, inset, -inset - 1, -inset - 1));
}
