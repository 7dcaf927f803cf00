#include "app/Names.h"
#include "app/ViewController.h"
#include "app/toolkit/ArrayController.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SettingsStore.h"
#include "core/IdentityChoice.h"
#include "core/Log.h"
#include "core/SignatureCheck.h"
#include "core/Text.h"

namespace {

bool isDoNotCodesign(const std::optional<IdentityRecord>& record) {
    return record && equalsIgnoringCase(record->identitystring, doNotCodesignIdentity);
}

/// As the log shows it: -1 without a selection.
int loggedIndex(const ArrayController* list) {
    const auto index = list != nullptr ? list->selectionIndex() : std::nullopt;
    return index ? static_cast<int>(*index) : -1;
}

} // namespace

IdentityList ViewController::identities() const {
    const auto content = ibListOfIdentities() ? ibListOfIdentities()->content() : std::nullopt;
    return content.value_or(IdentityList{});
}

std::optional<IdentityRecord> ViewController::selectedIdentity() const {
    if (!ibListOfIdentities())
        return std::nullopt;
    const std::vector<IdentityRecord> selected = ibListOfIdentities()->selectedObjects();
    return selected.empty() ? std::nullopt : std::optional(selected.front());
}

void ViewController::getCodesigningIdentities() {
    const auto list = codesigningIdentities(receiver(), surroundings_.tools);
    if (list && ibListOfIdentities())
        ibListOfIdentities()->setContent(list);
    if (!list || list->size() <= 1)
        explainLackOfIdentities();
}

void ViewController::explainLackOfIdentities() {
    GlobalQueue::async([self = QPointer(this), tools = surroundings_.tools] {
        // The listing above tells no reason; without one there is nothing wrong.
        if (const auto listed = listedIdentities(tools); !listed)
            MainQueue::async([self, why = listed.error().sentence] {
                if (self)
                    self->surroundings_.explain(why, "");
            });
    });
}

void ViewController::setupCodesigningPopupStuff() {
    static constexpr const char* methodName = "setupCodesigningPopupStuff";
    receiver().in(methodName).step("...");
    const auto remembered = surroundings_.settings.recordForKey(Names::selectedIdentity);
    const std::size_t index =
        remembered ? getSelectionIndexFromIdentityString(remembered->identitystring) : 0;
    if (ibListOfIdentities() && ibListOfIdentities()->content())
        ibListOfIdentities()->setSelectionIndex(index);
    else
        receiver().in(methodName).step("...NO LIST to set selectionIndex????????");
}

void ViewController::identitiesChanged() {
    const std::optional<IdentityRecord> selected = selectedIdentity();
    getCodesigningIdentities();
    if (selected)
        ibListOfIdentities()->setSelectionIndex(
            getSelectionIndexFromIdentityString(selected->identitystring));
    else
        setupCodesigningPopupStuff();
}

std::size_t ViewController::getSelectionIndexFromIdentityString(
    const std::optional<std::string>& identityString) const {
    return selectionIndex(identities(), identityString);
}

std::optional<std::string> ViewController::getCodesigningIdentity() const {
    static constexpr const char* methodName = "getCodesigningIdentity";
    receiver().in(methodName).step("...");
    const std::optional<IdentityRecord> record = selectedIdentity();
    receiver().in(methodName).step("...user selected object = %@", record);
    if (!record)
        return std::nullopt;
    receiver().in(methodName).step("...d = %@", record);
    return record->identitystring;
}

void ViewController::updateDoNotCodesignFromSelectedIdentity() {
    MainQueue::async(this, [this] {
        surroundings_.settings.setBool(Names::doNotCodesign, isDoNotCodesign(selectedIdentity()));
        surroundings_.settings.synchronize();
    });
}

void ViewController::ibClickedOnIdentityPopup(QObject*) {
    static constexpr const char* methodName = "ibClickedOnIdentityPopup:";
    // There is no managed object context here, and never was one.
    const std::optional<std::string> noContext;
    const ArrayController* list = ibListOfIdentities();
    const std::optional<IdentityRecord> record = selectedIdentity();
    logEvent("Inside %@-%@...", receiver(), methodName);
    logEvent("Inside %@-%@...self.ibListOfIdentities.selectionIndex = %i...", receiver(),
             methodName, loggedIndex(list));
    logEvent("Inside %@-%@...managedOjbectContext[%@] = %@", receiver(), methodName, noContext,
             noContext);
    logEvent("Inside %@-%@...self.ibListOfIdentities.content = %@", receiver(), methodName,
             list != nullptr ? list->content() : std::nullopt);
    logEvent("Inside %@-%@...self.ibListOfIdentities.selection = %@", receiver(), methodName,
             record);
    logEvent("Inside %@-%@...self.ibListOfIdentities.selectedObjects = %@", receiver(), methodName,
             record);
    updateDoNotCodesignFromSelectedIdentity();
    if (record && !isDoNotCodesign(record)) {
        MainQueue::async(this, [this, record] {
            surroundings_.settings.setRecord(Names::selectedIdentity, *record);
            surroundings_.settings.synchronize();
        });
    }
}

void ViewController::ibClickedOnCheckButton(QObject*) {
    static constexpr const char* methodName = "ibClickedOnCheckButton:";
    const ArrayController* list = ibListOfIdentities();
    receiver().in(methodName).step("...");
    receiver().in(methodName).step("...user selected index = %i", loggedIndex(list));
    receiver()
        .in(methodName)
        .step("...user selected object = %@",
              list != nullptr ? list->selectedObjects() : std::vector<IdentityRecord>{});
}

bool ViewController::isValidItemToSign(const std::string& path) {
    return ::isValidItemToSign(receiver(), surroundings_.tools, path,
                               surroundings_.settings.boolForKey(Names::doNotCodesign),
                               [this] { return identities(); });
}
