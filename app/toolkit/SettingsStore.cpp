#include "app/toolkit/SettingsStore.h"

#include "app/toolkit/QtDescription.h"
#include "core/Log.h"
#include "core/MainBundle.h"
#include "core/Text.h"

#include <QCheckBox>
#include <QFileInfo>
#include <QStandardPaths>

namespace {

constexpr const char* recordFields[] = {"title", "identitystring", "displaystring"};

QString fieldKey(const QString& key, const char* field) {
    return key + QLatin1Char('/') + QLatin1String(field);
}

/// Opening one might never return.
bool isPipeOrDevice(const QString& file) {
    const QFileInfo info(file);
    return info.exists() && !info.isFile() && !info.isDir();
}

} // namespace

QString SettingsStore::userFile() {
    // Not by a QSettings, which would open the file.
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + '/' +
           QString::fromLatin1(applicationIdentifier) + ".ini";
}

SettingsStore::SettingsStore(const QString& file)
    : name_(file), file_(isPipeOrDevice(file) ? file + "/unusable" : file, QSettings::IniFormat) {
    logTrouble();
}

std::optional<QString> SettingsStore::value(const QString& key) const {
    const std::lock_guard lock(mutex_);
    const QVariant value = file_.value(key);
    return value.typeId() == QMetaType::QString ? std::optional(value.toString()) : std::nullopt;
}

bool SettingsStore::setValue(const QString& key, const QString& value) {
    const bool isNew = this->value(key) != value;
    const std::lock_guard lock(mutex_);
    file_.setValue(key, value); // also the same value: the file may have lost it meanwhile
    return isNew;
}

bool SettingsStore::boolForKey(const QString& key) const {
    const std::string text = value(key).value_or(QString()).toStdString();
    return equalsIgnoringCase(text, "true") || equalsIgnoringCase(text, "yes") || text == "1";
}

std::optional<std::string> SettingsStore::stringForKey(const QString& key) const {
    const std::optional<QString> text = value(key);
    if (!text)
        return std::nullopt;
    return text->toStdString();
}

std::optional<IdentityRecord> SettingsStore::recordForKey(const QString& key) const {
    const auto field = [&](const char* name) { return stringForKey(fieldKey(key, name)); };
    const auto identitystring = field("identitystring");
    if (!identitystring)
        return std::nullopt;
    return IdentityRecord{field("title").value_or(""), *identitystring,
                          field("displaystring").value_or("")};
}

void SettingsStore::setBool(const QString& key, bool value) {
    setString(key, value ? "true" : "false");
}

void SettingsStore::setString(const QString& key, const std::string& value) {
    if (setValue(key, QString::fromStdString(value)))
        emit changed(key);
}

void SettingsStore::setRecord(const QString& key, const IdentityRecord& record) {
    const std::string* values[] = {&record.title, &record.identitystring, &record.displaystring};
    bool different = false;
    for (std::size_t i = 0; i < std::size(values); ++i)
        if (setValue(fieldKey(key, recordFields[i]), QString::fromStdString(*values[i])))
            different = true;
    if (different)
        emit changed(key);
}

void SettingsStore::synchronize() {
    {
        const std::lock_guard lock(mutex_);
        file_.sync();
    }
    logTrouble();
}

void SettingsStore::logTrouble() {
    if (file_.status() == loggedStatus_)
        return;
    loggedStatus_ = file_.status();
    if (loggedStatus_ == QSettings::FormatError)
        logEvent("settings: parts of %@ are not understood and count as absent", name_);
    else
        logEvent("settings: %@ can not be used, changes last until the end of this run", name_);
}

void SettingsStore::bind(QCheckBox& box, const QString& key) {
    box.setChecked(boolForKey(key));
    connect(&box, &QCheckBox::toggled, this, [this, key](bool checked) { setBool(key, checked); });
    connect(this, &SettingsStore::changed, &box, [this, &box, key](const QString& changedKey) {
        if (changedKey == key)
            box.setChecked(boolForKey(key));
    });
}
