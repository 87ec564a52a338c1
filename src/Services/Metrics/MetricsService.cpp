#include "Services/Metrics/MetricsService.h"

#include "Core/Log.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace quillo {

void MetricsService::track(const QString& event, const QVariantMap& properties) {
    const auto figures = QJsonDocument(QJsonObject::fromVariantMap(properties)).toJson(QJsonDocument::Compact);
    appLog(QStringLiteral("📊 %1 %2").arg(event, QString::fromUtf8(figures)), LogLevel::debug,
           QStringLiteral("Metrics"));
}

} // namespace quillo
