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
    /// How a number is also written: as the name of a key, or as the names of modifiers.
    enum class Notation { plain, key, modifiers };

    QString key;
    Type type = Type::string;
    Scope scope = Scope::user;
    QVariant defaultValue; ///< invalid: nothing stored and no default
    QString description;   ///< English, one line, for the command line
    QStringList choices;   ///< of a string setting; empty means any text
    double minimum = 0;    ///< of numbers, inclusive
    double maximum = 0;
    Notation notation = Notation::plain;
    QString modifiersKey{};  ///< of a key's setting: the setting of the modifiers held with it
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
/// The values to store for what a person typed, by setting. A key may also be given by name, in English or in the
/// interface language: "Ctrl+Alt+Space" says which modifiers belong to it, "F9" that none does. Throws SettingsError.
std::vector<std::pair<QString, QVariant>> parseSettingInput(const Setting& setting, const QString& text);
/// The value as a person reads it, in English: numbers of keys and modifiers with their names, "54 (Right Super)".
/// `parseSettingInput` understands it. Empty for no value.
QString printSettingValue(const Setting& setting, const QVariant& value);
/// `stored`, as it came from the preferences, in the setting's type; invalid when it is no value of the setting.
QVariant storedSettingValue(const Setting& setting, const QVariant& stored);

} // namespace quillo
