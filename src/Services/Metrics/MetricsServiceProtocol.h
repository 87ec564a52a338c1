#pragma once

#include <QString>
#include <QVariantMap>

namespace quillo {

/// Takes named events with their figures. Main thread; returns at once.
class MetricsServiceProtocol {
public:
    virtual ~MetricsServiceProtocol() = default;
    virtual void track(const QString& event, const QVariantMap& properties = {}) = 0;
};

} // namespace quillo
