#pragma once

#include "Services/Settings/UserSettings.h"

#include <functional>

namespace quillo {

/// Reads and prints settings for `quillo settings`. Each function throws a std::exception with a text for the user.
/// Main thread.
namespace settingsText {

[[nodiscard]] QString get(const UserSettings& settings, const QString& key);
/// Refuses a dictation language that is not served, and a hotkey without which nobody can type; an empty function
/// refuses neither.
void set(UserSettings& settings, const QString& key, const QString& value,
         const std::function<bool(const QString& code)>& isServed);
/// One line per setting: "key = value # description".
[[nodiscard]] QString list(const UserSettings& settings);

} // namespace settingsText

} // namespace quillo
