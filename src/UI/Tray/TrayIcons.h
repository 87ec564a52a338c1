#pragma once

#include "UI/Tray/TrayPresentation.h"

#include <QIcon>

namespace quillo {

/// The tray's symbol for `icon` in the sizes of panels. `onDark` chooses the colour of the idle symbol; the other
/// states have a coloured badge that is readable on both.
[[nodiscard]] QIcon trayIcon(TrayIcon icon, bool onDark);

/// Whether panels of the running desktop are dark; some are with any palette.
[[nodiscard]] bool isPanelDark();

} // namespace quillo
