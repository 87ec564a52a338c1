#pragma once

#include <QString>

namespace quillo {

/// What the user does to have a key where the application sees none.
namespace hotkeySetup {

/// The steps for the desktop of this process and this program's own path, for a terminal.
[[nodiscard]] QString guide();
/// Shows them in a window. Main thread, needs a QApplication.
void show();
/// Tells once, by a notification of the desktop, that a key has to be set up and how to see the steps. Without anybody
/// who shows notifications it is tried again at the next start.
void offerOnce();

} // namespace hotkeySetup

} // namespace quillo
