#pragma once

#include "Platform/Notifications.h"

#include <QString>

namespace quillo {

/// What the user does to have a key where the application sees none.
namespace hotkeySetup {

/// The steps for the desktop of this process and this program's own path, for a terminal.
[[nodiscard]] QString guide();
/// Says once, by a notification of the desktop, that a key has to be set up and how to see the steps. Where no
/// notification can be shown it is tried again at the next start. Main thread.
void offerOnce(Notifications& notifications);

} // namespace hotkeySetup

} // namespace quillo
