#pragma once

#include "Platform/WindowHints.h"
#include "UI/Foundation/UserInterfaceHooks.h"

#include <QQuickWindow>
#include <QTimer>

#include <chrono>

namespace quillo {

/// The window around the pill: always on top, never focused, in no task bar, takes input only on the pill, and appears
/// where the user left it. With a compositing manager the area around the pill is transparent and shows a shadow;
/// without one the window is cut to the pill's shape.
class PillWindow final : public QQuickWindow {
    Q_OBJECT
    Q_PROPERTY(bool composited READ isComposited NOTIFY shownChanged)
    Q_PROPERTY(bool shown READ isShown NOTIFY shownChanged)
    Q_PROPERTY(int margin READ shadowMargin CONSTANT)

public:
    /// Duration of the fade before the window is hidden.
    static constexpr std::chrono::milliseconds fadeDuration{160};
    /// Room around the pill for its shadow, logical pixels.
    static constexpr int margin = 22;

    /// Both must outlive the window.
    PillWindow(const UserInterfaceHooks& hooks, WindowHints& hints);

    [[nodiscard]] int shadowMargin() const { return margin; }
    [[nodiscard]] bool isComposited() const { return m_composited; }
    /// False as soon as the pill starts to fade.
    [[nodiscard]] bool isShown() const { return m_shown; }

    /// Size of the widest and tallest pill.
    void setPillSize(QSize size);
    /// Creates the native window at its final position: moving it afterwards races with the window manager, and Qt may
    /// keep reporting the wrong position.
    void prepare();
    /// Shows the pill on the screen chosen by `PillPlacement`, or fades it out and hides it.
    void setShown(bool shown);

    /// The visible pill in window coordinates, its corner radius and colour. Called at every step of its animations.
    Q_INVOKABLE void setCapsule(const QRectF& area, qreal radius, const QColor& fill);
    /// `pointer` is where the button went down, in desktop coordinates.
    Q_INVOKABLE void beginDrag(QPointF pointer);
    Q_INVOKABLE void drag();
    /// Stores the new place; false when the pointer has not moved, so that the press was a click.
    Q_INVOKABLE bool endDrag();

Q_SIGNALS:
    void shownChanged();

private:
    void place();
    void applyShape();

    const UserInterfaceHooks& m_hooks;
    WindowHints& m_hints;
    QSize m_pillSize;
    bool m_composited = true;
    bool m_shown = false;
    QRectF m_capsule;
    qreal m_radius = 0;
    QColor m_fill;
    QTimer m_hide;
    QPoint m_dragPointer;
    QPoint m_place; ///< the position of the window, as last requested
    QPoint m_dragWindow;
    bool m_dragged = false;
};

} // namespace quillo
