#pragma once

#include <QColor>
#include <QQuickPaintedItem>

namespace quillo {

/// A small symbol drawn in one colour at any size: "check", "cross", "exclamation", "stop", "lock", "microphone",
/// "search", "person", "plus", "forward". We draw them because symbol fonts differ between desktops.
class GlyphItem : public QQuickPaintedItem {
    Q_OBJECT
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY changed)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY changed)

public:
    explicit GlyphItem(QQuickItem* parent = nullptr);

    [[nodiscard]] QString name() const { return m_name; }
    void setName(const QString& name);
    [[nodiscard]] QColor color() const { return m_color; }
    void setColor(const QColor& color);

    void paint(QPainter* painter) override;

Q_SIGNALS:
    void changed();

private:
    QString m_name;
    QColor m_color = Qt::white;
};

/// The soft shadow of a rounded rectangle that fills the item except for `extent` pixels on every side.
class ShadowItem : public QQuickPaintedItem {
    Q_OBJECT
    Q_PROPERTY(qreal extent MEMBER m_extent NOTIFY changed)
    Q_PROPERTY(qreal radius MEMBER m_radius NOTIFY changed)
    Q_PROPERTY(qreal strength MEMBER m_strength NOTIFY changed)

public:
    explicit ShadowItem(QQuickItem* parent = nullptr);
    void paint(QPainter* painter) override;

Q_SIGNALS:
    void changed();

private:
    qreal m_extent = 16;
    qreal m_radius = 22;
    qreal m_strength = 0.35;
};

} // namespace quillo
