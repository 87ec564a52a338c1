#pragma once

#include "Services/Metrics/MetricsServiceProtocol.h"

namespace quillo {

/// Writes the events with their figures to the log; nothing leaves the machine.
class MetricsService final : public MetricsServiceProtocol {
public:
    void track(const QString& event, const QVariantMap& properties = {}) override;
};

} // namespace quillo
