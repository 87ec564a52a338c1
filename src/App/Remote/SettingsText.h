#pragma once

#include "Services/Settings/UserSettings.h"

namespace quillo {

/// Reads and prints settings for `quillo settings`. Each function throws SettingsError with a text for the user. Main
/// thread.
namespace settingsText {

[[nodiscard]] QString get(const UserSettings& settings, const QString& key);
void set(UserSettings& settings, const QString& key, const QString& value);
/// One line per setting: "key = value # description".
[[nodiscard]] QString list(const UserSettings& settings);

} // namespace settingsText

} // namespace quillo
