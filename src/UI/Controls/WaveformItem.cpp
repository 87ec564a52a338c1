#include "UI/Controls/WaveformItem.h"

#include <QPainter>
#include <QTimerEvent>

namespace quillo {

WaveformItem::WaveformItem(QQuickItem* parent) : QQuickPaintedItem(parent) { setAntialiasing(true); }

void WaveformItem::setMode(const QString& mode) {
    if (mode == m_modeName)
        return;
    m_modeName = mode;
    if (mode == u"live")
        m_mode = WaveformModel::Mode::live;
    else
        m_mode = mode == u"travelling" ? WaveformModel::Mode::travelling : WaveformModel::Mode::calm;
    Q_EMIT changed();
}

void WaveformItem::setRunning(bool running) {
    if (running == m_running)
        return;
    m_running = running;
    if (running) {
        m_model.clear();
        m_frames.start(static_cast<int>(frameInterval.count()), Qt::PreciseTimer, this);
    } else {
        m_frames.stop();
    }
    Q_EMIT changed();
}

void WaveformItem::setColor(const QColor& color) {
    if (color == m_color)
        return;
    m_color = color;
    update();
    Q_EMIT changed();
}

void WaveformItem::timerEvent(QTimerEvent* event) {
    if (event->timerId() != m_frames.timerId())
        return QQuickPaintedItem::timerEvent(event);
    m_model.tick(m_mode, m_level);
    update();
}

void WaveformItem::paint(QPainter* painter) {
    const auto pitch = width() / static_cast<qreal>(WaveformModel::barCount - 1);
    const auto thickness = std::max<qreal>(1.5, pitch * 0.52);
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    const auto offset = static_cast<qreal>(m_model.offset());
    for (std::size_t bar = 0; bar < WaveformModel::barCount; ++bar) {
        const auto place = static_cast<qreal>(bar) - offset;
        const auto centre = place * pitch;
        const auto tall = std::max(thickness, static_cast<qreal>(m_model.bars()[bar]) * height());
        // The ends fade so that bars neither appear nor vanish at a hard edge.
        const auto fade = std::min({1.0, (place + 0.4) / 3.0, (WaveformModel::barCount - place) / 1.6});
        QColor color = m_color;
        color.setAlphaF(static_cast<float>(m_color.alphaF() * std::clamp(fade, 0.0, 1.0)));
        painter->setBrush(color);
        painter->drawRoundedRect(QRectF(centre - thickness / 2, (height() - tall) / 2, thickness, tall), thickness / 2,
                                 thickness / 2);
    }
}

} // namespace quillo
