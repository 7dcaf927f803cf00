#include "app/ViewController.h"
#include "app/platform/ArrayController.h"
#include "app/platform/QtDescription.h"
#include "app/platform/SettingsStore.h"
#include "core/Log.h"
#include "core/SignatureCheck.h"
#include "core/Text.h"

namespace {

constexpr const char* selectedIdentityKey = "prefSelectedIdentityInfoDictionary";
constexpr const char* doNotCodesignKey = "prefDoNotCodesign";

bool isDoNotCodesign(const std::optional<IdentityRecord>& record) {
    return record && equalsIgnoringCase(record->identitystring, doNotCodesignIdentity);
}

/// As the log shows it: -1 without a selection.
int loggedIndex(const ArrayController* list) {
    const auto index = list != nullptr ? list->selectionIndex() : std::nullopt;
    return index ? static_cast<int>(*index) : -1;
}

} // namespace

std::optional<IdentityRecord> ViewController::selectedIdentity() const {
    if (!ibListOfIdentities_)
        return std::nullopt;
    const std::vector<IdentityRecord> selected = ibListOfIdentities_->selectedObjects();
    return selected.empty() ? std::nullopt : std::optional(selected.front());
}

void ViewController::getCodesigningIdentities() {
    const auto list = codesigningIdentities(receiver(), surroundings_.tools);
    if (list && ibListOfIdentities_)
        ibListOfIdentities_->setContent(list);
}

void ViewController::setupCodesigningPopupStuff() {
    static constexpr const char* methodName = "setupCodesigningPopupStuff";
    logEvent("%@-%@...", receiver(), methodName);
    const auto remembered = surroundings_.settings.recordForKey(selectedIdentityKey);
    const std::size_t index =
        remembered ? getSelectionIndexFromIdentityString(remembered->identitystring) : 0;
    if (ibListOfIdentities_ && ibListOfIdentities_->content())
        ibListOfIdentities_->setSelectionIndex(index);
    else
        logEvent("%@-%@...NO LIST to set selectionIndex????????", receiver(), methodName);
}

std::size_t ViewController::getSelectionIndexFromIdentityString(
    const std::optional<std::string>& identityString) const {
    const auto content = ibListOfIdentities_ ? ibListOfIdentities_->content() : std::nullopt;
    return selectionIndex(content.value_or(IdentityList{}), identityString);
}

std::optional<std::string> ViewController::getCodesigningIdentity() const {
    static constexpr const char* methodName = "getCodesigningIdentity";
    logEvent("%@-%@...", receiver(), methodName);
    const std::optional<IdentityRecord> record = selectedIdentity();
    logEvent("%@-%@...user selected object = %@", receiver(), methodName, record);
    if (!record)
        return std::nullopt;
    logEvent("%@-%@...d = %@", receiver(), methodName, record);
    return record->identitystring;
}

void ViewController::updateDoNotCodesignFromSelectedIdentity() {
    onMainQueue([this] {
        surroundings_.settings.setBool(doNotCodesignKey, isDoNotCodesign(selectedIdentity()));
        surroundings_.settings.synchronize();
    });
}

void ViewController::ibClickedOnIdentityPopup(QObject*) {
    static constexpr const char* methodName = "ibClickedOnIdentityPopup:";
    // There is no managed object context here, and never was one.
    const std::optional<std::string> noContext;
    const ArrayController* list = ibListOfIdentities_;
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
        onMainQueue([this, record] {
            surroundings_.settings.setRecord(selectedIdentityKey, *record);
            surroundings_.settings.synchronize();
        });
    }
}

void ViewController::ibClickedOnCheckButton(QObject*) {
    static constexpr const char* methodName = "ibClickedOnCheckButton:";
    const ArrayController* list = ibListOfIdentities_;
    logEvent("%@-%@...", receiver(), methodName);
    logEvent("%@-%@...user selected index = %i", receiver(), methodName, loggedIndex(list));
    logEvent("%@-%@...user selected object = %@", receiver(), methodName,
             list != nullptr ? list->selectedObjects() : std::vector<IdentityRecord>{});
}

bool ViewController::isValidItemToSign(const std::string& path) {
    return ::isValidItemToSign(
        receiver(), path, surroundings_.settings.boolForKey(doNotCodesignKey), [this] {
            const auto content =
                ibListOfIdentities_ ? ibListOfIdentities_->content() : std::nullopt;
            return content.value_or(IdentityList{});
        });
}
