#pragma once

#include "App/Account/AccountSession.h"
#include "App/Dictation/DictationHotkeys.h"
#include "App/System/ServedLanguages.h"
#include "UI/Foundation/UserInterfaceHooks.h"

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

/// The hooks of the application. The parts must outlive them. Main thread.
[[nodiscard]] UserInterfaceHooks interfaceHooks(InterfaceParts parts);

} // namespace quillo
