#pragma once

#include "App/Account/AccountSession.h"
#include "App/Dictation/DictationHotkeys.h"
#include "App/System/ServedLanguages.h"

namespace quillo {

/// The objects on which the interface's hooks act.
struct InterfaceParts {
    ServiceContainer& services;
    UserSettings& settings;
    Dictation& dictation;
    DictationHotkeys& hotkeys;
    AccountSession& account;
    ServedLanguages& servedLanguages;
    TaskRunner& tasks;
};

} // namespace quillo
