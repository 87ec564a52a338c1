#pragma once

#include <QRect>

namespace quillo {

/// Requests of a window to the desktop for which Qt has no function. Main thread. `window` is the native id of a window
/// of this process (`QWindow::winId`).
class WindowHints {
public:
    virtual ~WindowHints() = default;

    /// Whether translucent windows are blended with those behind them. Queries the desktop each time.
    [[nodiscard]] virtual bool isComposited() const = 0;
    /// Whether a panel of the older kind, which embeds tray windows, is running.
    [[nodiscard]] virtual bool hasSystemTray() const = 0;
    /// Keeps a window that is not shown yet out of task bars and pagers. Window managers forget it when the window is
    /// hidden, so call it before each showing.
    virtual void skipTaskbar(quintptr window) = 0;
    /// Limits pointer input to `region`, in physical pixels of the window; clicks elsewhere pass through.
    virtual void setInputRegion(quintptr window, const QRect& region) = 0;
};

} // namespace quillo
