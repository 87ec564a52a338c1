#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <stdexcept>
#include <vector>

namespace quillo {

/// What a person typed is no value of the setting. `what()` names the setting, what was given and what is expected.
class SettingsError : public std::invalid_argument {
public:
    explicit SettingsError(const QString& message) : std::invalid_argument(message.toStdString()) {}
    [[nodiscard]] QString message() const { return QString::fromUtf8(what()); }
};

/// One setting: where it is kept, what it may be and what it means.
struct Setting {
    enum class Type { boolean, integer, number, string, decisions };
    enum class Scope { user, global };

    QString key;
    Type type = Type::string;
    Scope scope = Scope::user;
    QVariant defaultValue; ///< invalid: nothing stored and no default
    QString description;   ///< English, one line, for the command line
    QStringList choices;   ///< of a string setting; empty means any text
    double minimum = 0;    ///< of numbers, inclusive
    double maximum = 0;
    bool isInternal = false; ///< bookkeeping: not listed, not to be set by hand
};

/// Every setting, in the order in which they are listed.
const std::vector<Setting>& settingsSchema();
/// Throws SettingsError, naming similar keys, when there is no such setting.
const Setting& settingForKey(const QString& key);
/// The setting of `key`; null when there is none.
const Setting* findSetting(const QString& key);

/// The value that `text` stands for: "true/false/yes/no/on/off/1/0", numbers (key codes and masks also as 0x...), text.
/// An empty text stands for "nothing stored" where the setting has no default. Throws SettingsError.
QVariant parseSettingValue(const Setting& setting, const QString& text);
/// The inverse of `parseSettingValue`; empty for no value.
QString printSettingValue(const Setting& setting, const QVariant& value);
/// `stored`, as it came from the preferences, in the setting's type; invalid when it is no value of the setting.
QVariant storedSettingValue(const Setting& setting, const QVariant& stored);

} // namespace quillo
