#pragma once

#include "app/Surroundings.h"
#include "app/ViewControllerProperties.h"
#include "app/toolkit/AtomicProperty.h"
#include "core/Caller.h"
#include "core/Confirmation.h"
#include "core/Identities.h"
#include "core/ItemProcessing.h"
#include "core/Location.h"

#include <QPointer>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

class SerialQueue;
struct AskedEntry;

/// The controller of the one main window: carries the flow from queue to queue; what is decided on
/// the way is decided in core/. Its sources go by subject: life cycle and reveal, identities,
/// intake, item processing, the batch loop. Methods are called on the main thread unless they say
/// otherwise.
class ViewController : public ViewControllerProperties {
    Q_OBJECT
public:
    explicit ViewController(Surroundings surroundings);

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

    /// Blocks while the identity tool runs.
    void getCodesigningIdentities();
    void setupCodesigningPopupStuff();
    /// Asks the identity tool again; what was selected stays selected if it is still there.
    void identitiesChanged();
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

    /// Adds each as a path, in a later turn, with a beep for what is there already. Any thread.
    void addItemsToBeProcessedSet(const LocationList& items);
    /// Adds it as it is, in a later turn, and starts the loop if it is the only one. Any thread.
    void addItemToBeProcessedSet(const std::string& item);
    /// Says why `location` is not taken, if it is not. Main thread.
    void explainRefusal(const LocationItem& location);
    void handleNewSearchPath(const Notification& notification);
    void handleNewSearchPathOLD(const Notification& notification);
    void ibChangePath(QObject* sender);

    // The doProcessItem methods block while scripts run: processing queue only. The others: any.
    [[nodiscard]] static SerialQueue& processQueue();
    /// If it is stopped on the way, the entry stays.
    void doProcessItemNew(const std::string& entry);
    void doProcessItem(const std::string& package);
    void doProcessItemOnly(const std::string& package);
    /// Hands the search path to the scripts as a whole, then quits.
    void doProcess();
    void doProcessOLD();

    void doButton1(QObject* sender);
    /// One turn of the batch loop. Processing queue only.
    void doButton1Loop(QObject* sender);
    /// Whether this is the edition that packs only. Any thread.
    [[nodiscard]] bool neverSigns() const;
    /// Lets the script that runs end, leaves the other packages, and ends the loop there, also for
    /// turns that are queued. The entry stays among those that wait.
    void stopProcessing() { ++stops_; }
    /// Told when a sheet of others has been closed: a turn that stopped at it goes on.
    void sheetClosed();
    /// Takes an entry away from those that wait, unless it is at work. A loop stalled at it ends.
    void removeWaiting(const std::string& entry);

private:
    [[nodiscard]] Caller receiver() const;
    [[nodiscard]] QWidget* window() const;
    [[nodiscard]] std::optional<IdentityRecord> selectedIdentity() const;
    [[nodiscard]] IdentityList identities() const;
    [[nodiscard]] ProcessingHooks processingHooks();
    void refreshNumberOfFolders();
    void explainLackOfIdentities();
    void addAndStart(LocationList urls);
    void refuseDuplicate(const std::string& path);
    void finishItem(const std::string& item, const std::optional<LocationItem>& revealed,
                    std::chrono::microseconds pause);
    void tellEndOfRun();
    void processSearchPath();
    void startLoop(QObject* sender = nullptr);
    void terminateUnlessAsking();
    void panelClosed(int code, const LocationList& chosen);
    void confirm(const std::string& entry, AskedEntry asked);
    void loopEnded();
    void confirmed(const std::string& entry, Confirmation::Answer answer);

    Surroundings surroundings_;
    bool looksAgain_ = false; // when the panel, or a sheet of others, is closed
    std::atomic<int> stops_ = 0, stopsBefore_ = 0; // all, and those before the entry at work
    std::size_t answered_ = 0; // entries of the run that were processed or skipped
    QPointer<QObject> representedObject_;
};
