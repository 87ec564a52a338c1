#pragma once

#include <QRect>

namespace quillo {

/// What a window can ask of the desktop beyond what Qt has calls for. Main thread. `window` is the native id of a
/// window of this process (`QWindow::winId`).
class WindowHints {
public:
    virtual ~WindowHints() = default;

    /// Whether translucent windows blend with what lies behind them. Asks the desktop each time.
    [[nodiscard]] virtual bool isComposited() const = 0;
    /// Whether a panel of the older kind, which embeds tray windows, is running.
    [[nodiscard]] virtual bool hasSystemTray() const = 0;
    /// Keeps a window that is not shown yet out of task bars and pagers. Window managers forget it when the window is
    /// hidden, so call it before each showing.
    virtual void skipTaskbar(quintptr window) = 0;
    /// Limits where the window takes pointer input to `region`, in physical pixels of the window; the rest lets clicks
    /// through.
    virtual void setInputRegion(quintptr window, const QRect& region) = 0;
};

} // namespace quillo
