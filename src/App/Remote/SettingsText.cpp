#include "App/Remote/SettingsText.h"

#include "Core/UserError.h"
#include "Localization/LocalizationManager.h"

namespace quillo::settingsText {

QString get(const UserSettings& settings, const QString& key) {
    return printSettingValue(settingForKey(key), settings.value(key));
}

void set(UserSettings& settings, const QString& key, const QString& value,
         const std::function<bool(const QString& code)>& isServed) {
    for (const auto& [name, parsed] : parseSettingInput(settingForKey(key), value)) {
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
