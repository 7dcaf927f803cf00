#pragma once

#include "app/MyDragDropView.h"
#include "app/toolkit/ArrayController.h"
#include "app/toolkit/AtomicProperty.h"
#include "core/WorkSet.h"

#include <QObject>
#include <QPointer>
#include <QWidget>

#include <memory>
#include <optional>
#include <string>
#include <utility>

/// What the window shows of its controller, and the parts of the window that the controller works
/// with. Properties are read on any thread and written on the main thread; each write is followed
/// by propertyChanged(). Outlets are for the main thread, but the list of identities is read from
/// the processing queue too.
class ViewControllerProperties : public QObject {
    Q_OBJECT
    using Text = std::optional<std::string>;

public:
    /// The folder or package that is worked on; none before the first and after the start of a run.
    [[nodiscard]] Text fSearchPath() const { return fSearchPath_.get(); }
    void setFSearchPath(Text path) { set(fSearchPath_, std::move(path)); }
    /// Whether the batch loop is at an entry.
    [[nodiscard]] bool fButton1Busy() const { return fButton1Busy_.get(); }
    void setFButton1Busy(bool busy) { set(fButton1Busy_, busy); }
    /// The entry whose packages are being processed, and not only asked about.
    [[nodiscard]] Text entryAtWork() const { return entryAtWork_.get(); }
    void setEntryAtWork(Text entry) { set(entryAtWork_, std::move(entry)); }
    [[nodiscard]] bool isProcessing() const { return entryAtWork().has_value(); }
    /// The entry that the loop has stopped at as it is no folder, until the next turn.
    [[nodiscard]] Text stalledAt() const { return stalledAt_.get(); }
    void setStalledAt(Text entry) { set(stalledAt_, std::move(entry)); }
    [[nodiscard]] Text fProgressString1() const { return fProgressString1_.get(); }
    void setFProgressString1(Text text) { set(fProgressString1_, std::move(text)); }
    [[nodiscard]] Text fVersionString() const { return fVersionString_.get(); }
    void setFVersionString(Text text) { set(fVersionString_, std::move(text)); }
    /// None before viewDidLoad.
    [[nodiscard]] std::shared_ptr<WorkSet> fSetOfFolders() const { return fSetOfFolders_.get(); }
    void setFSetOfFolders(std::shared_ptr<WorkSet> s) { set(fSetOfFolders_, std::move(s)); }
    [[nodiscard]] std::optional<int> fNumberOfFoldersToProcess() const { return fNumber_.get(); }
    void setFNumberOfFoldersToProcess(std::optional<int> count) { set(fNumber_, count); }

    // Outlets, connected when the interface is loaded.
    [[nodiscard]] QWidget* view() const { return view_; }
    void setView(QWidget* view) { view_ = view; }
    [[nodiscard]] MyDragDropView* ibDragDropView() const { return ibDragDropView_; }
    void setIbDragDropView(MyDragDropView* view) { ibDragDropView_ = view; }
    [[nodiscard]] ArrayController* ibListOfIdentities() const { return ibListOfIdentities_; }
    void setIbListOfIdentities(ArrayController* list) { ibListOfIdentities_ = list; }

signals:
    /// One of the properties has been written.
    void propertyChanged();

private:
    template <typename T>
    void set(AtomicProperty<T>& property, T value) {
        property.set(std::move(value));
        emit propertyChanged();
    }

    AtomicProperty<Text> fSearchPath_;
    AtomicProperty<bool> fButton1Busy_;
    AtomicProperty<Text> entryAtWork_;
    AtomicProperty<Text> stalledAt_;
    AtomicProperty<Text> fProgressString1_;
    AtomicProperty<Text> fVersionString_;
    AtomicProperty<std::shared_ptr<WorkSet>> fSetOfFolders_;
    AtomicProperty<std::optional<int>> fNumber_;
    QPointer<QWidget> view_;
    QPointer<MyDragDropView> ibDragDropView_;
    QPointer<ArrayController> ibListOfIdentities_;
};
