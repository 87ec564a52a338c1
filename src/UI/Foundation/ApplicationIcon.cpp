#include "UI/Foundation/ApplicationIcon.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

#include <array>

namespace quillo {

namespace {

constexpr std::array sizes{16, 20, 22, 24, 32, 48, 64};

constexpr qreal grid = 24; ///< the side of the drawings
constexpr QPointF badgeCentre(17.8, 17.8);

} // namespace

QByteArray readResource(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The interface resource %s is missing from the build.", qPrintable(path));
    return file.readAll();
}

QIcon renderIcon(const QByteArray& drawing, const QByteArray& badge) {
    QSvgRenderer renderer(drawing);
    QSvgRenderer badgeRenderer(badge.isEmpty() ? drawing : badge);
    QIcon icon;
    for (const int size : sizes) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter);
        if (!badge.isEmpty()) {
            // A gap around the badge keeps it distinct at 16 pixels too.
            painter.save();
            painter.scale(size / grid, size / grid);
            painter.setCompositionMode(QPainter::CompositionMode_Clear);
            painter.setPen(Qt::NoPen);
            painter.setBrush(Qt::black);
            painter.drawEllipse(badgeCentre, 7.3, 7.3);
            painter.restore();
            badgeRenderer.render(&painter);
        }
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

QIcon applicationIcon() { return renderIcon(readResource(QStringLiteral(":/quillo/icons/quillo.svg"))); }

} // namespace quillo
