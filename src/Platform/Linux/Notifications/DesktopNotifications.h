#pragma once

#include "Platform/Notifications.h"

#include <memory>

namespace quillo {

/// Over the notification service of the session bus (Desktop Notifications Specification 1.2). Null without a bus.
std::unique_ptr<Notifications> createDesktopNotifications();

} // namespace quillo
