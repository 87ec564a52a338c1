#pragma once

#include "Services/Settings/UserSettings.h"

namespace quillo {

/// The settings as `quillo settings` reads and prints them. Each function throws SettingsError, whose text is for the
/// user. Main thread.
namespace settingsText {

[[nodiscard]] QString get(const UserSettings& settings, const QString& key);
void set(UserSettings& settings, const QString& key, const QString& value);
/// A line for each setting: "key = value  # what it does".
[[nodiscard]] QString list(const UserSettings& settings);

} // namespace settingsText

} // namespace quillo
