#pragma once

#include "App/Interface/InterfaceParts.h"
#include "UI/Foundation/UserInterfaceHooks.h"

namespace quillo {

/// The hooks of the application. The parts must outlive them. Main thread.
[[nodiscard]] UserInterfaceHooks interfaceHooks(InterfaceParts parts);

} // namespace quillo
