#pragma once

#include "UI/UserInterfaceHooks.h"

#include <QQuickWindow>

#include <chrono>

namespace quillo {

/// The window around the pill: above all others, never focused, in no task bar, taking input on the pill alone, where
/// the user left it. With a compositing manager its surroundings are transparent and hold a shadow; without one the
/// window is cut to the pill's shape.
class PillWindow final : public QQuickWindow {
    Q_OBJECT
    Q_PROPERTY(bool composited READ isComposited NOTIFY shownChanged)
    Q_PROPERTY(bool shown READ isShown NOTIFY shownChanged)
    Q_PROPERTY(int margin READ shadowMargin CONSTANT)

public:
    /// How long the pill fades before its window goes.
    static constexpr std::chrono::milliseconds fadeDuration{160};
    /// Room around the pill for its shadow, logical pixels.
    static constexpr int margin = 22;

    explicit PillWindow(const UserInterfaceHooks& hooks);

    [[nodiscard]] int shadowMargin() const { return margin; }
    [[nodiscard]] bool isComposited() const { return m_composited; }
    /// False as soon as the pill starts to fade.
    [[nodiscard]] bool isShown() const { return m_shown; }

    /// Size of the widest and tallest pill.
    void setPillSize(QSize size);
    /// Makes the native window where it will appear: moving it afterwards races with the window manager, and the
    /// position that Qt reports may then stay wrong.
    void prepare();
    /// Shows the pill on the proper screen, or lets it fade and hides it.
    void setShown(bool shown);

    /// The visible pill in window coordinates, its corner radius and colour. Called at every step of its animations.
    Q_INVOKABLE void setCapsule(const QRectF& area, qreal radius, const QColor& fill);
    /// `pointer` is where the button went down, in desktop coordinates.
    Q_INVOKABLE void beginDrag(QPointF pointer);
    Q_INVOKABLE void drag();
    /// Stores the new place; false when the pointer has not moved, which makes it a click.
    Q_INVOKABLE bool endDrag();

Q_SIGNALS:
    void shownChanged();

private:
    void place();
    void applyShape();

    const UserInterfaceHooks& m_hooks;
    QSize m_pillSize;
    bool m_composited = true;
    bool m_shown = false;
    QRectF m_capsule;
    qreal m_radius = 0;
    QColor m_fill;
    QTimer m_hide;
    QPoint m_dragPointer;
    QPoint m_place; ///< of the window, as last asked for
    QPoint m_dragWindow;
    bool m_dragged = false;
};

} // namespace quillo
