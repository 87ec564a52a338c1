#include "App/Commands/StatusReport.h"

#include "Localization/LocalizationManager.h"
#include "Services/Hotkeys/HotkeyChoice.h"
#include "Services/Settings/KeyCodeLabels.h"

#include <QJsonArray>
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

QString nameOf(const KeyCombination& combination) {
    return keyCombinationToString(combination.keyCode, combination.modifiers);
}

QJsonArray conflictArray(const std::vector<HotkeyConflict>& conflicts) {
    QJsonArray array;
    for (const auto& conflict : conflicts)
        array.append(QJsonObject{
            {QStringLiteral("hotkey"),
             conflict.hotkey == Hotkey::hold ? QStringLiteral("hold") : QStringLiteral("toggle")},
            {QStringLiteral("key"), nameOf(conflict.taken)},
            {QStringLiteral("free"), conflict.free ? nameOf(*conflict.free) : QString()},
            {QStringLiteral("message"), LocalizationManager::shared().t(hotkeyChoice::messageOf(conflict))},
        });
    return array;
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
    if (!surroundings.conflicts.empty())
        object.insert(QStringLiteral("unavailableHotkeys"), conflictArray(surroundings.conflicts));
    if (lastRun)
        object.insert(QStringLiteral("lastRun"), runObject(*lastRun));
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

} // namespace quillo
