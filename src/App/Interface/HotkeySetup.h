#pragma once

#include "Platform/Notifications.h"

#include <QString>

namespace quillo {

/// How the user sets up a key on a desktop where the application cannot observe keys.
namespace hotkeySetup {

/// The steps for the desktop of this process and this program's own path, for a terminal.
[[nodiscard]] QString guide();
/// Informs the user once, by a desktop notification, that a key has to be set up and how to see the steps. If the
/// notification cannot be shown, the next start tries again. Main thread.
void offerOnce(Notifications& notifications);

} // namespace hotkeySetup

} // namespace quillo
