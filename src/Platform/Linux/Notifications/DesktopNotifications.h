#pragma once

#include "Platform/Notifications.h"

#include <memory>

namespace quillo {

/// Notifications over the session bus (Desktop Notifications Specification 1.2). Null without a bus.
std::unique_ptr<Notifications> createDesktopNotifications();

} // namespace quillo
