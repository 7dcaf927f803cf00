#pragma once

#include "core/Identities.h"

#include <QObject>
#include <QSettings>
#include <QString>

#include <mutex>
#include <optional>
#include <string>

class QCheckBox;

/// The user's settings by key, kept in a readable file. Reads: any thread. All else: main thread.
class SettingsStore : public QObject {
    Q_OBJECT
public:
    /// The file of this user's settings.
    [[nodiscard]] static QString userFile();
    /// Opens `file`. If it can not be read, or holds no settings, that is logged and the store is
    /// empty.
    explicit SettingsStore(const QString& file = userFile());

    /// False for an absent key.
    [[nodiscard]] bool boolForKey(const QString& key) const;
    /// None for an absent key and for what is not a text.
    [[nodiscard]] std::optional<std::string> stringForKey(const QString& key) const;
    /// None for an absent key and for what is not a record with an identity string.
    [[nodiscard]] std::optional<IdentityRecord> recordForKey(const QString& key) const;

    void setBool(const QString& key, bool value);
    void setString(const QString& key, const std::string& value);
    void setRecord(const QString& key, const IdentityRecord& record);

    /// Writes the file now. If that fails, a line is logged (once) and the values last until the
    /// end of this run.
    void synchronize();

    /// Keeps the check box and the boolean at `key` equal, whichever is changed, for the life of
    /// the check box. Enabling and disabling it stays with its owner.
    void bind(QCheckBox& box, const QString& key);

signals:
    /// The value at `key` is another one now.
    void changed(const QString& key);

private:
    [[nodiscard]] std::optional<QString> value(const QString& key) const;
    /// False if that is the value already.
    bool setValue(const QString& key, const QString& value);
    void logTrouble();

    mutable std::mutex mutex_; // for the file, which threads read while it changes
    const QString name_;
    QSettings file_; // another one where nothing is, if that of the name cannot be opened
    QSettings::Status loggedStatus_ = QSettings::NoError;
};
