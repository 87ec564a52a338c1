#pragma once

#include "Platform/Notifications.h"
#include "Platform/WindowHints.h"

#include <memory>

namespace quillo {

/// What the program shows itself with. Needed before the services are built, and without them to say why.
struct InterfaceAdapters {
    std::unique_ptr<WindowHints> windowHints;
    std::unique_ptr<Notifications> notifications;

    /// The adapters of this desktop, stand-ins where it has none. Needs a QGuiApplication. Main thread.
    [[nodiscard]] static InterfaceAdapters create();
};

} // namespace quillo
