#pragma once

#include <QRect>
#include <QWindow>

namespace quillo {

/// Hints that Qt has no call for. On other platforms than X11 they do nothing: there every window is composited.
namespace windowhints {

/// Whether translucent windows blend with what lies behind them. Asks the X server.
[[nodiscard]] bool isComposited();

/// Keeps a window that is not shown yet out of task bars and pagers. Window managers forget it when the window is
/// hidden, so it is set before each showing.
void skipTaskbar(QWindow& window);

/// Restricts where the window takes pointer input to `region`, in the window's logical coordinates; the rest lets
/// clicks through.
void setInputRegion(QWindow& window, const QRect& region);

/// Whether a panel of the older kind, which embeds tray windows, is running.
[[nodiscard]] bool hasSystemTray();

} // namespace windowhints
} // namespace quillo
