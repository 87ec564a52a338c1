#include "App/Remote/SettingsText.h"

#include "Core/UserError.h"
#include "Localization/LocalizationManager.h"
#include "Services/Hotkeys/HotkeyChoice.h"
#include "Services/Settings/KeyNames.h"

namespace quillo::settingsText {

namespace {

using Changes = std::vector<std::pair<QString, QVariant>>;

/// Throws UserError when the changes would make a hotkey of a key that is needed for typing.
void refuseUnusableHotkey(const UserSettings& settings, const Changes& changes) {
    auto config = HotkeyConfig::fromSettings(settings);
    std::optional<Hotkey> changed;
    for (const auto& [name, value] : changes) {
        if (name == QStringLiteral("hotkeyKeyCode"))
            config.keyCode = static_cast<uint16_t>(value.toUInt());
        else if (name == QStringLiteral("hotkeyModifiers"))
            config.modifiers = value.toULongLong();
        else if (name == QStringLiteral("toggleHotkeyKeyCode"))
            config.toggleKeyCode = static_cast<uint16_t>(value.toUInt());
        else if (name == QStringLiteral("toggleHotkeyModifiers"))
            config.toggleModifiers = value.toULongLong();
        else
            continue;
        changed = name.startsWith(QStringLiteral("toggle")) ? Hotkey::toggle : Hotkey::hold;
    }
    if (!changed)
        return;
    const auto combination = *changed == Hotkey::hold ? KeyCombination{config.keyCode, config.modifiers}
                                                      : KeyCombination{config.toggleKeyCode, config.toggleModifiers};
    if (const auto key = hotkeyChoice::keyOf(hotkeyChoice::problemOf(*changed, combination, config)); !key.isEmpty())
        throw UserError({key, {keyNames::of(combination)}});
}

} // namespace

QString get(const UserSettings& settings, const QString& key) {
    return printSettingValue(settingForKey(key), settings.value(key));
}

void set(UserSettings& settings, const QString& key, const QString& value,
         const std::function<bool(const QString& code)>& isServed) {
    const auto changes = parseSettingInput(settingForKey(key), value);
    if (isServed)
        refuseUnusableHotkey(settings, changes);
    for (const auto& [name, parsed] : changes) {
        if (name != QStringLiteral("primaryLanguage")) {
            settings.setValue(name, parsed);
            continue;
        }
        const auto code = parsed.toString();
        if (isServed && !isServed(code))
            throw UserError({QStringLiteral("settings.languageNotServed"),
                             {LocalizationManager::shared().languageName(code), code}});
        settings.chooseLanguages(code, settings.secondaryLanguage());
    }
}

QString list(const UserSettings& settings) {
    QStringList lines;
    for (const auto& setting : settingsSchema())
        if (!setting.isInternal)
            lines << QStringLiteral("%1 = %2  # %3")
                         .arg(setting.key, printSettingValue(setting, settings.value(setting.key)),
                              setting.description);
    return lines.join(QLatin1Char('\n'));
}

} // namespace quillo::settingsText
