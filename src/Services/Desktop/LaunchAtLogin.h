#pragma once

#include "Platform/LoginItem.h"

#include <optional>

namespace quillo {

/// Makes the login item match the setting "launchAtLogin". Main thread; a failure is logged and changes nothing.
class LaunchAtLogin {
public:
    explicit LaunchAtLogin(LoginItem& item) : m_item(item) {}

    /// At start. `chosen` is the stored setting; nothing when the user never made a choice, and then what the session
    /// or its administrator arranged stays. Returns what the setting should say from now on: false when the item was
    /// switched off in the session's settings since, which counts as the newer choice.
    bool reconcile(std::optional<bool> chosen);

    /// The user has just made a choice, which also overrules the session's settings. Returns whether the item is
    /// enabled afterwards.
    bool change(bool desired);

private:
    void match(bool desired);

    LoginItem& m_item;
};

} // namespace quillo
