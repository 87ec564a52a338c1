#include "UI/Pill/PillWindow.h"

#include "UI/Pill/PillPlacement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QStyleHints>

#include <cmath>

namespace quillo {

namespace {

/// A rounded rectangle built row by row: Qt's conversion of a path first rounds its points to whole pixels, which makes
/// the corners look faceted.
QRegion roundedRegion(const QRect& area, int radius) {
    QRegion region(area.adjusted(0, radius, 0, -radius));
    for (int row = 0; row < radius; ++row) {
        const double rise = radius - row - 0.5;
        const int inset = qRound(radius - std::sqrt(radius * radius - rise * rise));
        const int width = area.width() - 2 * inset;
        region += QRect(area.x() + inset, area.y() + row, width, 1);
        region += QRect(area.x() + inset, area.y() + area.height() - 1 - row, width, 1);
    }
    return region;
}

/// `area`, in logical pixels, in those of the screen.
QRect physical(const QRect& area, qreal scale) {
    return {qRound(area.x() * scale), qRound(area.y() * scale), qRound(area.width() * scale),
            qRound(area.height() * scale)};
}

} // namespace

PillWindow::PillWindow(const UserInterfaceHooks& hooks, WindowHints& hints)
    : m_hooks(hooks), m_hints(hints), m_composited(hints.isComposited()) {
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus |
             Qt::NoDropShadowWindowHint);
    // Under Xwayland the compositor places and focuses a managed window as it likes, but leaves an unmanaged one alone.
    if (QGuiApplication::platformName() == u"xcb" && !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        setFlag(Qt::BypassWindowManagerHint);
    auto format = requestedFormat();
    format.setAlphaBufferSize(8);
    setFormat(format);
    setColor(Qt::transparent);
    setTitle(QStringLiteral("Quillo"));
    m_hide.setSingleShot(true);
    connect(&m_hide, &QTimer::timeout, this, [this] { hide(); });
    const auto placeAgain = [this] {
        if (isVisible())
            place();
    };
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, placeAgain, Qt::QueuedConnection);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, [this, placeAgain](QScreen* added) {
        connect(added, &QScreen::availableGeometryChanged, this, placeAgain);
        placeAgain();
    });
    for (auto* known : QGuiApplication::screens())
        connect(known, &QScreen::availableGeometryChanged, this, placeAgain);
}

void PillWindow::setPillSize(QSize size) {
    m_pillSize = size;
    setMinimumSize(size.grownBy(QMargins(margin, margin, margin, margin)));
    setMaximumSize(minimumSize());
    resize(minimumSize());
}

void PillWindow::prepare() {
    place();
    create();
}

void PillWindow::setShown(bool shown) {
    if (shown == m_shown)
        return;
    m_shown = shown;
    if (!shown) {
        Q_EMIT shownChanged();
        if (m_composited)
            m_hide.start(fadeDuration);
        else
            hide();
        return;
    }
    m_hide.stop();
    m_composited = m_hints.isComposited();
    place();
    applyShape();
    if (!isVisible())
        m_hints.skipTaskbar(winId());
    Q_EMIT shownChanged();
    show();
    applyShape();
}

void PillWindow::place() {
    PillPlacement placement{.screens = {},
                            .saved = m_hooks.loadPillPosition ? m_hooks.loadPillPosition() : std::nullopt,
                            .pointer = QCursor::pos(),
                            .pillSize = m_pillSize};
    for (auto* known : QGuiApplication::screens())
        placement.screens.push_back(known->availableGeometry());
    const auto bottomCentre = placePill(placement);
    // Set the screen first: its scale factor is used to convert the position.
    if (auto* target = QGuiApplication::screenAt(bottomCentre); target && target != screen())
        setScreen(target);
    // Do not use width() and height() here: after a move to a screen of another scale they give the old pixels in new
    // units.
    const auto wanted = minimumSize();
    m_place = {bottomCentre.x() - wanted.width() / 2, bottomCentre.y() + margin - wanted.height()};
    setGeometry(QRect(m_place, wanted));
}

void PillWindow::setCapsule(const QRectF& area, qreal radius, const QColor& fill) {
    m_capsule = area;
    m_radius = radius;
    m_fill = fill;
    applyShape();
}

void PillWindow::applyShape() {
    // Wait until the native window exists: requesting its handle here would create it before its size is known, and a
    // resize takes effect only after the window manager has answered.
    if (m_capsule.isEmpty() || !handle())
        return;
    // Without a compositing manager the mask limits the input, so the input region covers the whole window.
    m_hints.setInputRegion(
        winId(), physical(m_composited ? m_capsule.toAlignedRect() : QRect(QPoint(), size()), devicePixelRatio()));
    if (m_composited) {
        setColor(Qt::transparent);
        setMask({});
        return;
    }
    // Pixels outside the smoothed corners but inside the mask get the pill's colour instead of black.
    QColor opaque = m_fill;
    opaque.setAlpha(255);
    setColor(opaque);
    setMask(roundedRegion(m_capsule.toAlignedRect(), qRound(m_radius)));
}

void PillWindow::beginDrag(QPointF pointer) {
    // Use the position of the press, not the current one: the pointer may have moved before the press was handled.
    m_dragPointer = pointer.toPoint();
    m_dragWindow = m_place;
    m_dragged = false;
}

void PillWindow::drag() {
    const auto moved = QCursor::pos() - m_dragPointer;
    if (!m_dragged && moved.manhattanLength() < QGuiApplication::styleHints()->startDragDistance())
        return;
    // On Wayland a client cannot place its windows; the compositor moves them.
    if (!m_dragged && QGuiApplication::platformName().startsWith(u"wayland"))
        startSystemMove();
    m_dragged = true;
    m_place = m_dragWindow + moved;
    setPosition(m_place);
}

bool PillWindow::endDrag() {
    if (!m_dragged)
        return false;
    if (m_hooks.savePillPosition)
        m_hooks.savePillPosition(QPointF(m_place.x() + width() / 2.0, m_place.y() + height() - margin));
    place();
    return true;
}

} // namespace quillo
