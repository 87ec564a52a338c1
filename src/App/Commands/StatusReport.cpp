#include "App/Commands/StatusReport.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace quillo {

namespace {

QString deliveryWord(Delivery delivery) {
    switch (delivery) {
    case Delivery::read:
        return QStringLiteral("read");
    case Delivery::typed:
        return QStringLiteral("typed");
    case Delivery::unconfirmed:
        return QStringLiteral("unconfirmed");
    case Delivery::clipboardOnly:
        return QStringLiteral("clipboardOnly");
    }
    return {};
}

QJsonObject runObject(const RecordingReport& report) {
    QJsonObject run{
        {QStringLiteral("id"), report.runId},
        {QStringLiteral("reason"), report.reason},
        {QStringLiteral("text"), report.text},
        {QStringLiteral("timings"), QJsonObject::fromVariantMap(report.timings)},
    };
    if (report.delivery)
        run.insert(QStringLiteral("delivery"), deliveryWord(*report.delivery));
    if (report.firstSampleAt)
        run.insert(QStringLiteral("firstSampleMonotonicNs"),
                   static_cast<qint64>(report.firstSampleAt->time_since_epoch().count()));
    return run;
}

} // namespace

QString statusReport(const RecordingState& state, const std::optional<RecordingReport>& lastRun,
                     const StatusSurroundings& surroundings) {
    QJsonObject object{
        {QStringLiteral("status"), state.status.description()},
        {QStringLiteral("handsOff"), state.isHandsOff},
        {QStringLiteral("partialText"), state.partialText},
        {QStringLiteral("chunksSent"), state.chunksSent},
        {QStringLiteral("server"), surroundings.server},
        {QStringLiteral("hotkeysArmed"), surroundings.hotkeysArmed},
        {QStringLiteral("microphone"), surroundings.microphone},
    };
    if (const auto* error = state.status.error()) {
        object.insert(QStringLiteral("message"), error->errorDescription());
        object.insert(QStringLiteral("detail"), error->detail());
    }
    if (lastRun)
        object.insert(QStringLiteral("lastRun"), runObject(*lastRun));
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

} // namespace quillo
