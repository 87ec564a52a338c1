#pragma once

#include "App/Interface/InterfaceParts.h"
#include "UI/Foundation/UserInterfaceHooks.h"

namespace quillo {

/// Adds what the interface needs to show, try and choose the hotkeys.
void addHotkeyHooks(UserInterfaceHooks& hooks, const InterfaceParts& parts);

} // namespace quillo
