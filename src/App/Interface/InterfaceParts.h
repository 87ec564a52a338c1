#pragma once

#include "App/Account/AccountSession.h"
#include "App/Dictation/DictationHotkeys.h"

namespace quillo {

/// The objects on which the interface's hooks act.
struct InterfaceParts {
    ServiceContainer& services;
    UserSettings& settings;
    Dictation& dictation;
    DictationHotkeys& hotkeys;
    AccountSession& account;
    TaskRunner& tasks;
};

} // namespace quillo
