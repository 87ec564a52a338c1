#include "App/System/InterfaceAdapters.h"

#include "Platform/Linux/Notifications/DesktopNotifications.h"
#include "Platform/Linux/X11/X11WindowHints.h"
#include "Platform/Unavailable.h"

namespace quillo {

InterfaceAdapters InterfaceAdapters::create() {
    InterfaceAdapters adapters{createX11WindowHints(), createDesktopNotifications()};
    if (!adapters.windowHints)
        adapters.windowHints = makeUnavailableWindowHints();
    if (!adapters.notifications)
        adapters.notifications = makeUnavailableNotifications();
    return adapters;
}

} // namespace quillo
