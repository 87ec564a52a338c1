#include "UI/Tray/TrayPresentation.h"

namespace quillo {

TrayPresentation presentTray(const RecordingState& state, const Translate& translate) {
    const auto& status = state.status;
    TrayPresentation shown;
    auto words = QStringLiteral("pill.ready");
    if (const auto* error = status.error(); error && !error->is<RecordingError::Cancelled>()) {
        shown.icon = TrayIcon::error;
    } else if (status.is<RecordingState::RecordingOffline>()) {
        shown.icon = TrayIcon::offline;
        words = QStringLiteral("pill.offline");
    } else if (status.isActive()) {
        shown.icon = TrayIcon::recording;
        words = QStringLiteral("pill.listening");
    } else if (status.is<RecordingState::Processing>()) {
        shown.icon = TrayIcon::processing;
        words = QStringLiteral("pill.processing");
    }
    const auto description =
        shown.icon == TrayIcon::error ? status.error()->errorDescription().simplified() : translate(words);
    shown.toolTip = QStringLiteral("Quillo: ") + description;
    shown.toggleText =
        translate(status.isActive() ? QStringLiteral("tray.stopDictation") : QStringLiteral("tray.startDictation"));
    shown.canCancel = status.isActive() || status.is<RecordingState::Processing>();
    return shown;
}

} // namespace quillo
