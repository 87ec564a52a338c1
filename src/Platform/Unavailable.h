#pragma once

#include "Platform/Accessibility.h"
#include "Platform/Applications.h"
#include "Platform/KeyEvents.h"
#include "Platform/KeyInjector.h"
#include "Platform/Notifications.h"
#include "Platform/Pasteboard.h"
#include "Platform/WindowHints.h"

#include <memory>

namespace quillo {

// Null objects for what a desktop does not offer: each reports "not available" and does nothing, so that callers need
// not check for null.
std::unique_ptr<KeyEventSource> makeUnavailableKeyEventSource();
std::unique_ptr<KeyInjector> makeUnavailableKeyInjector();
std::unique_ptr<Pasteboard> makeUnavailablePasteboard();
std::unique_ptr<Applications> makeUnavailableApplications();
std::unique_ptr<Accessibility> makeUnavailableAccessibility();
std::unique_ptr<Notifications> makeUnavailableNotifications();
/// For a desktop that composites every window and has no panel of the older kind.
std::unique_ptr<WindowHints> makeUnavailableWindowHints();

} // namespace quillo
