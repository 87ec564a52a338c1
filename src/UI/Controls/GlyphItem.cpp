#include "UI/Controls/GlyphItem.h"

#include <QPainter>
#include <QPainterPath>

namespace quillo {

namespace {

/// Strokes on a 24 by 24 grid.
QPainterPath strokes(const QString& name) {
    QPainterPath path;
    if (name == u"check") {
        path.moveTo(5.5, 12.5);
        path.lineTo(10, 17);
        path.lineTo(18.5, 7.5);
    } else if (name == u"cross") {
        path.moveTo(7, 7);
        path.lineTo(17, 17);
        path.moveTo(17, 7);
        path.lineTo(7, 17);
    } else if (name == u"exclamation") {
        path.moveTo(12, 5.5);
        path.lineTo(12, 13);
    } else if (name == u"lock") {
        path.moveTo(8, 11);
        path.lineTo(8, 8.5);
        path.arcTo(QRectF(8, 4.5, 8, 8), 180, -180);
        path.lineTo(16, 11);
    } else if (name == u"microphone") {
        path.moveTo(6, 11.5);
        path.arcTo(QRectF(6, 5.5, 12, 12), 180, 180);
        path.moveTo(12, 17.5);
        path.lineTo(12, 20.5);
    } else if (name == u"search") {
        path.addEllipse(QRectF(4.5, 4.5, 11, 11));
        path.moveTo(14, 14);
        path.lineTo(19.5, 19.5);
    } else if (name == u"person") {
        path.moveTo(5, 20.5);
        path.arcTo(QRectF(5, 14.5, 14, 12), 180, -180);
    } else if (name == u"plus") {
        path.moveTo(12, 5);
        path.lineTo(12, 19);
        path.moveTo(5, 12);
        path.lineTo(19, 12);
    } else if (name == u"forward") {
        path.moveTo(5, 12);
        path.lineTo(18.5, 12);
        path.moveTo(12.5, 6);
        path.lineTo(18.5, 12);
        path.lineTo(12.5, 18);
    }
    return path;
}

QPainterPath fills(const QString& name) {
    QPainterPath path;
    if (name == u"exclamation")
        path.addEllipse(QPointF(12, 17.8), 1.5, 1.5);
    else if (name == u"stop")
        path.addRoundedRect(QRectF(7, 7, 10, 10), 2.2, 2.2);
    else if (name == u"lock")
        path.addRoundedRect(QRectF(5.5, 10.5, 13, 9.5), 2.4, 2.4);
    else if (name == u"microphone")
        path.addRoundedRect(QRectF(9, 3, 6, 11.5), 3, 3);
    else if (name == u"person")
        path.addEllipse(QPointF(12, 7.5), 4.2, 4.2);
    return path;
}

} // namespace

GlyphItem::GlyphItem(QQuickItem* parent) : QQuickPaintedItem(parent) { setAntialiasing(true); }

void GlyphItem::setName(const QString& name) {
    if (name == m_name)
        return;
    m_name = name;
    update();
    Q_EMIT changed();
}

void GlyphItem::setColor(const QColor& color) {
    if (color == m_color)
        return;
    m_color = color;
    update();
    Q_EMIT changed();
}

void GlyphItem::paint(QPainter* painter) {
    painter->setRenderHint(QPainter::Antialiasing);
    painter->scale(width() / 24, height() / 24);
    painter->setPen(QPen(m_color, 2.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter->setBrush(Qt::NoBrush);
    painter->drawPath(strokes(m_name));
    painter->setPen(Qt::NoPen);
    painter->setBrush(m_color);
    painter->drawPath(fills(m_name));
}

ShadowItem::ShadowItem(QQuickItem* parent) : QQuickPaintedItem(parent) {
    setAntialiasing(true);
    connect(this, &ShadowItem::changed, this, [this] { update(); });
}

void ShadowItem::paint(QPainter* painter) {
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    // Stacked translucent outlines give a quadratic fall-off, which resembles a blurred edge at a fraction of its cost.
    const int layers = static_cast<int>(m_extent);
    const auto alpha = static_cast<float>(m_strength * 2 / (layers + 1.0));
    for (int layer = 0; layer < layers; ++layer) {
        const auto grown = static_cast<qreal>(layers - layer) * (layers - layer) / layers;
        const QRectF area = QRectF(m_extent, m_extent, width() - 2 * m_extent, height() - 2 * m_extent)
                                .adjusted(-grown, -grown, grown, grown);
        painter->setBrush(QColor::fromRgbF(0, 0, 0, alpha * 0.5F));
        painter->drawRoundedRect(area, m_radius + grown, m_radius + grown);
    }
}

} // namespace quillo
