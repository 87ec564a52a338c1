#include "App/Remote/SettingsText.h"

namespace quillo::settingsText {

QString get(const UserSettings& settings, const QString& key) {
    return printSettingValue(settingForKey(key), settings.value(key));
}

void set(UserSettings& settings, const QString& key, const QString& value) {
    for (const auto& [name, parsed] : parseSettingInput(settingForKey(key), value))
        if (name == QStringLiteral("primaryLanguage"))
            settings.chooseLanguages(parsed.toString(), settings.secondaryLanguage());
        else
            settings.setValue(name, parsed);
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
