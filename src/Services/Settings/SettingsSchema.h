#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <stdexcept>
#include <vector>

namespace quillo {

/// The input is not a valid value of the setting. `what()` names the setting, the input and the expected values.
class SettingsError : public std::invalid_argument {
public:
    explicit SettingsError(const QString& message) : std::invalid_argument(message.toStdString()) {}
    [[nodiscard]] QString message() const { return QString::fromUtf8(what()); }
};

/// One setting: its key, valid values and description.
struct Setting {
    enum class Type { boolean, integer, number, string, decisions };
    enum class Scope { user, global };
    /// An alternative notation of a number: the name of a key, or the names of modifiers.
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
    QString modifiersKey{};  ///< for the setting of a key: the setting of its modifiers
    bool isInternal = false; ///< internal state: not listed, and not set by the user
};

/// All settings, in the order of their listing.
const std::vector<Setting>& settingsSchema();
/// Throws SettingsError, naming similar keys, when there is no such setting.
const Setting& settingForKey(const QString& key);
/// The setting of `key`; null when there is none.
const Setting* findSetting(const QString& key);

/// Parses `text`: "true/false/yes/no/on/off/1/0", numbers (key codes and masks also as 0x...), text. An empty text
/// means "nothing stored" if the setting has no default. Throws SettingsError.
QVariant parseSettingValue(const Setting& setting, const QString& text);
/// The values to store for the user's input, by setting. A key may also be given by name, in English or in the
/// interface language: "Ctrl+Alt+Space" also sets the modifiers, "F9" clears them. Throws SettingsError.
std::vector<std::pair<QString, QVariant>> parseSettingInput(const Setting& setting, const QString& text);
/// The value as the preferences hold it; numbers of keys and modifiers are numbers only.
QString settingForStorage(const Setting& setting, const QVariant& value);
/// The value in readable form, in English: numbers of keys and modifiers with their names, "54 (Right Super)".
/// `parseSettingInput` accepts this form. Empty for no value.
QString printSettingValue(const Setting& setting, const QVariant& value);
/// Converts `stored`, as read from the preferences, to the setting's type; invalid when it is not a valid value.
QVariant storedSettingValue(const Setting& setting, const QVariant& stored);

} // namespace quillo
