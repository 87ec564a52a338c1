#include "UI/Pill/PillPlacement.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillo {

namespace {

/// Squared distance from `point` to `area`; 0 inside.
double distance(const QRect& area, QPointF point) {
    const double x = std::max({area.left() - point.x(), 0.0, point.x() - area.right()});
    const double y = std::max({area.top() - point.y(), 0.0, point.y() - area.bottom()});
    return x * x + y * y;
}

const QRect& nearest(const std::vector<QRect>& screens, QPointF point) {
    return *std::ranges::min_element(screens, {}, [point](const QRect& area) { return distance(area, point); });
}

/// Clamps to the range, or to its middle when the pill is larger than the screen.
int clamp(double value, int low, int high) {
    if (low > high)
        return (low + high) / 2;
    return static_cast<int>(std::lround(std::clamp(value, static_cast<double>(low), static_cast<double>(high))));
}

bool isUsable(const std::optional<QPointF>& point) {
    return point && std::isfinite(point->x()) && std::isfinite(point->y());
}

} // namespace

QPoint placePill(const PillPlacement& placement) {
    if (placement.screens.empty())
        return {};
    const bool saved = isUsable(placement.saved);
    const QRect& area = nearest(placement.screens, saved ? *placement.saved : QPointF(placement.pointer));
    const QPointF wanted =
        saved ? *placement.saved
              : QPointF(area.x() + area.width() / 2.0, area.y() + area.height() - PillPlacement::bottomDistance);
    const int halfWidth = (placement.pillSize.width() + 1) / 2 + PillPlacement::edgeDistance;
    return {clamp(wanted.x(), area.x() + halfWidth, area.x() + area.width() - halfWidth),
            clamp(wanted.y(), area.y() + placement.pillSize.height() + PillPlacement::edgeDistance,
                  area.y() + area.height() - PillPlacement::edgeDistance)};
}

} // namespace quillo
