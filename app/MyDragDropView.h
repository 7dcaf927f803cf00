#pragma once

#include "core/Location.h"

#include <QWidget>

class AppDelegate;
class DraggingPasteboard;

/// The area that packages and folders are dropped on. Any drag with locations is offered a drop;
/// one with a folder or package in it shows a blue outline. What is dropped goes the way of open
/// requests. Main thread.
class MyDragDropView : public QWidget {
    Q_OBJECT
public:
    explicit MyDragDropView(QWidget* parent = nullptr);

    /// Gets the dropped locations. Without one they go nowhere.
    void setDelegate(AppDelegate* delegate) { delegate_ = delegate; }
    /// Makes the view take drags.
    void awakeFromNib();

    [[nodiscard]] bool isHighlighted() const { return isHighlighted_; }
    void setIsHighlighted(bool highlighted) { isHighlighted_ = highlighted; }

    // The steps of a drag, in their order.
    void draggingEntered(const DraggingPasteboard& pasteboard);
    void draggingExited();
    bool prepareForDragOperation();
    bool performDragOperation(const DraggingPasteboard& pasteboard);
    void concludeDragOperation();
    /// Sorts out what cannot be processed and hands the rest on, also when nothing is left.
    void doTheStuff(const DraggingPasteboard& pasteboard);
    void draggingEnded();

signals:
    /// All that was dropped, what cannot be processed too.
    void dropped(const LocationList& locations);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void logStep(const char* methodName) const;
    /// In a later turn, so that it takes effect after the present step of the drag.
    void highlightLater(bool highlighted, bool redraw);

    AppDelegate* delegate_ = nullptr;
    bool isHighlighted_ = false;
};
