#pragma once

#include "UI/Tray/TrayPresentation.h"

#include <QIcon>

namespace quillo {

/// The tray's symbol for `icon`, drawn for the sizes that panels use. `onDark` chooses the colour of the idle symbol;
/// the other states carry a coloured badge and are readable on both.
[[nodiscard]] QIcon trayIcon(TrayIcon icon, bool onDark);

/// Whether panels of the running desktop are dark. Some are whatever the palette says.
[[nodiscard]] bool isPanelDark();

} // namespace quillo
