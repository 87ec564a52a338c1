#include "UI/Pill/PillWindow.h"

#include "UI/Pill/PillPlacement.h"
#include "UI/Window/X11WindowHints.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPainterPath>
#include <QScreen>
#include <QStyleHints>

namespace quillo {

PillWindow::PillWindow(const UserInterfaceHooks& hooks) : m_hooks(hooks) {
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus |
             Qt::NoDropShadowWindowHint);
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
    m_composited = windowhints::isComposited();
    place();
    applyShape();
    if (!isVisible())
        windowhints::skipTaskbar(*this);
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
    // The screen first: it decides the scale factor that the position is converted with.
    if (auto* target = QGuiApplication::screenAt(bottomCentre); target && target != screen())
        setScreen(target);
    setPosition(bottomCentre.x() - width() / 2, bottomCentre.y() + margin - height());
}

void PillWindow::setCapsule(const QRectF& area, qreal radius, const QColor& fill) {
    m_capsule = area;
    m_radius = radius;
    m_fill = fill;
    applyShape();
}

void PillWindow::applyShape() {
    if (m_capsule.isEmpty())
        return;
    if (m_composited) {
        setColor(Qt::transparent);
        setMask({});
        windowhints::setInputRegion(*this, m_capsule.toAlignedRect());
        return;
    }
    // What lies outside the smoothed corners but inside the mask takes the pill's own colour instead of black.
    QColor opaque = m_fill;
    opaque.setAlpha(255);
    setColor(opaque);
    QPainterPath outline;
    outline.addRoundedRect(m_capsule, m_radius, m_radius);
    setMask(QRegion(outline.toFillPolygon().toPolygon()));
}

void PillWindow::beginDrag() {
    m_dragPointer = QCursor::pos();
    m_dragWindow = position();
    m_dragged = false;
}

void PillWindow::drag() {
    const auto moved = QCursor::pos() - m_dragPointer;
    if (!m_dragged && moved.manhattanLength() < QGuiApplication::styleHints()->startDragDistance())
        return;
    // A client cannot place its windows on Wayland; there the compositor moves them.
    if (!m_dragged && QGuiApplication::platformName().startsWith(u"wayland"))
        startSystemMove();
    m_dragged = true;
    setPosition(m_dragWindow + moved);
}

bool PillWindow::endDrag() {
    if (!m_dragged)
        return false;
    if (m_hooks.savePillPosition)
        m_hooks.savePillPosition(QPointF(x() + width() / 2.0, y() + height() - margin));
    place();
    return true;
}

} // namespace quillo
