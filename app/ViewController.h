#pragma once

#include "app/MyDragDropView.h"
#include "app/platform/ArrayController.h"
#include "app/platform/AtomicProperty.h"
#include "app/platform/NotificationCenter.h"
#include "core/Caller.h"
#include "core/Confirmation.h"
#include "core/Identities.h"
#include "core/ItemProcessing.h"
#include "core/MainBundle.h"
#include "core/WorkSet.h"

#include <QObject>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <string>

class SerialQueue;
class SettingsStore;

/// The controller of the one main window: holds what the window shows and carries the flow from
/// queue to queue; what is decided on the way is decided in core/. Its sources go by subject:
/// life cycle and reveal, identities, intake, item processing, the batch loop.
///
/// Methods are called on the main thread unless they say otherwise.
class ViewController : public QObject {
    Q_OBJECT
public:
    /// What the controller works with; all of it outlives the controller.
    struct Surroundings {
        const MainBundle& bundle;
        SettingsStore& settings;
        NotificationCenter& notifications;
        ToolPaths tools;
        /// Quits the application.
        std::function<void()> terminate;
        /// Shows a summary and a body to a person who looks elsewhere.
        std::function<void(const QString& summary, const QString& body)> notifyUser;
    };

    explicit ViewController(Surroundings surroundings);
    ~ViewController() override;

    // Properties. Reads: any thread. Writes: main thread; each write is followed by
    // propertyChanged().
    [[nodiscard]] std::optional<std::string> fSearchPath() const { return fSearchPath_.get(); }
    void setFSearchPath(std::optional<std::string> path);
    [[nodiscard]] bool fButton1Busy() const { return fButton1Busy_.get(); }
    void setFButton1Busy(bool busy);
    /// Whether packages are being processed, and not only asked about.
    [[nodiscard]] bool isProcessing() const { return isProcessing_.get(); }
    [[nodiscard]] std::optional<std::string> fProgressString1() const;
    void setFProgressString1(std::optional<std::string> text);
    [[nodiscard]] std::optional<std::string> fVersionString() const;
    void setFVersionString(std::optional<std::string> text);
    /// None before viewDidLoad.
    [[nodiscard]] std::shared_ptr<WorkSet> fSetOfFolders() const { return fSetOfFolders_.get(); }
    void setFSetOfFolders(std::shared_ptr<WorkSet> set);
    [[nodiscard]] std::optional<int> fNumberOfFoldersToProcess() const;
    void setFNumberOfFoldersToProcess(std::optional<int> count);

    // Outlets, connected by whoever loads the interface. Main thread; the list of identities is
    // read from the processing queue too.
    [[nodiscard]] QWidget* view() const { return view_; }
    void setView(QWidget* view) { view_ = view; }
    [[nodiscard]] MyDragDropView* ibDragDropView() const { return ibDragDropView_; }
    void setIbDragDropView(MyDragDropView* view) { ibDragDropView_ = view; }
    [[nodiscard]] ArrayController* ibListOfIdentities() const { return ibListOfIdentities_; }
    void setIbListOfIdentities(ArrayController* list) { ibListOfIdentities_ = list; }

    // Life cycle and reveal.
    /// Does its work once in the life of the process.
    void awakeFromNib();
    void viewDidLoad();
    void setRepresentedObject(QObject* object) { representedObject_ = object; }
    /// Starts the spinner, if it does not spin yet, in a later turn.
    void setupSpin();
    void ibTestSpin(QObject* sender);
    void boundsDidChangeNotification(const Notification& notification);
    void observeValueForKeyPath(const std::string& keyPath, const QObject* object,
                                const std::string& change, const std::string& context);
    /// Reveals `item` if it is a path, else the search path, off the main thread. Any thread.
    void doRevealItem(const std::optional<LocationItem>& item);

    // Identities.
    /// Blocks while the identity tool runs.
    void getCodesigningIdentities();
    void setupCodesigningPopupStuff();
    [[nodiscard]] std::size_t
    getSelectionIndexFromIdentityString(const std::optional<std::string>& identityString) const;
    /// The selected identity; none without a selection. Any thread.
    [[nodiscard]] std::optional<std::string> getCodesigningIdentity() const;
    /// Lets "prefDoNotCodesign" follow the selection, in a later turn.
    void updateDoNotCodesignFromSelectedIdentity();
    void ibClickedOnIdentityPopup(QObject* sender);
    void ibClickedOnCheckButton(QObject* sender);
    /// Always true; see core/SignatureCheck.h. Any thread but the main one.
    bool isValidItemToSign(const std::string& path);

    // Intake.
    /// Adds each as a path, in a later turn, with a beep for what is there already. Any thread.
    void addItemsToBeProcessedSet(const LocationList& items);
    /// Adds `item` as it is, in a later turn, and starts the loop if it is the only one. Any
    /// thread.
    void addItemToBeProcessedSet(const std::string& item);
    void handleNewSearchPath(const Notification& notification);
    void handleNewSearchPathOLD(const Notification& notification);
    void ibChangePath(QObject* sender);

    // Processing. The doProcessItem methods block while scripts run: processing queue only.
    /// The one queue on which folders are processed. Any thread.
    [[nodiscard]] static SerialQueue& processQueue();
    void doProcessItemNew(const std::string& entry);
    void doProcessItem(const std::string& package);
    void doProcessItemOnly(const std::string& package);
    /// Hands the search path to the scripts as a whole, then quits. Any thread.
    void doProcess();
    void doProcessOLD();

    // The batch loop.
    void doButton1(QObject* sender);
    /// One turn. Processing queue only.
    void doButton1Loop(QObject* sender);

signals:
    /// One of the properties has been written.
    void propertyChanged();

private:
    /// What became of the packages of a run.
    struct RunTally {
        int packed = 0;
        int notPacked = 0;
        int notSigned = 0; ///< though they were to be
    };

    [[nodiscard]] Caller receiver() const;
    /// Runs `job` in a later turn of the main queue, unless this is gone by then. Any thread.
    void onMainQueue(std::function<void()> job);
    [[nodiscard]] QWidget* window() const;
    [[nodiscard]] std::optional<IdentityRecord> selectedIdentity() const;
    [[nodiscard]] ProcessingHooks processingOutside();
    void refreshNumberOfFolders();
    void finishItem(const std::string& item, const std::optional<LocationItem>& revealed,
                    std::chrono::microseconds pause);
    void count(const std::vector<ScriptRun>& runs);
    void tellEndOfRun();
    void setProcessing(bool processing);
    /// Starts a turn of the loop. Any thread.
    void startLoop();
    /// Quits, unless a sheet is attached: then the loop looks again when that is closed.
    void terminateUnlessAsking();
    void panelClosed(int code, const LocationList& chosen);
    void processSearchPath();
    void confirm(const std::string& entry);
    void answer(const std::string& entry, Confirmation::Answer answer);

    Surroundings surroundings_;
    RunTally tally_;          // processing queue only
    bool looksAgain_ = false; // once the sheet is closed; main thread
    AtomicProperty<bool> isProcessing_;
    AtomicProperty<std::optional<std::string>> fSearchPath_;
    AtomicProperty<bool> fButton1Busy_;
    AtomicProperty<std::optional<std::string>> fProgressString1_;
    AtomicProperty<std::optional<std::string>> fVersionString_;
    AtomicProperty<std::shared_ptr<WorkSet>> fSetOfFolders_;
    AtomicProperty<std::optional<int>> fNumberOfFoldersToProcess_;
    QPointer<QWidget> view_;
    QPointer<MyDragDropView> ibDragDropView_;
    QPointer<ArrayController> ibListOfIdentities_;
    QPointer<QObject> representedObject_;
};
