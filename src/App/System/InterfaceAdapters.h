#pragma once

#include "Platform/Notifications.h"
#include "Platform/WindowHints.h"

#include <memory>

namespace quillo {

/// The adapters for showing windows and messages. Needed before the services, and to report why they could not be
/// built.
struct InterfaceAdapters {
    std::unique_ptr<WindowHints> windowHints;
    std::unique_ptr<Notifications> notifications;

    /// The adapters of this desktop, or null objects. Needs a QGuiApplication. Main thread.
    [[nodiscard]] static InterfaceAdapters create();
};

} // namespace quillo
