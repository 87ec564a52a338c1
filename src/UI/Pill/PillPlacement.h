#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>
#include <vector>

namespace quillo {

/// Computes the pill's position. All geometry is in Qt's logical desktop coordinates, in which screens of different
/// scale factors may have gaps between them.
struct PillPlacement {
    std::vector<QRect> screens;   ///< usable areas without panels, the primary first; never empty in a running session
    std::optional<QPointF> saved; ///< bottom centre of the pill where the user last left it
    QPoint pointer;
    QSize pillSize; ///< the largest size

    /// Distance from the bottom of the screen when the user has not placed the pill.
    static constexpr int bottomDistance = 28;
    /// Minimum distance from every edge.
    static constexpr int edgeDistance = 6;
};

/// The bottom centre of the pill: the saved place if there is one, otherwise the bottom centre of the screen with the
/// pointer; moved so that the whole pill is on one screen. A place on a disconnected screen moves to the nearest one.
[[nodiscard]] QPoint placePill(const PillPlacement& placement);

} // namespace quillo
