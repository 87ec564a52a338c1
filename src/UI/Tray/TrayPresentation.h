#pragma once

#include "Features/Recording/RecordingState.h"
#include "UI/Pill/PillPresentation.h"

namespace quillo {

enum class TrayIcon { idle, recording, offline, processing, error };

/// What the tray icon and its menu show, as a value that is compared to decide whether to update the tray.
struct TrayPresentation {
    TrayIcon icon = TrayIcon::idle;
    QString toolTip;
    QString toggleText; ///< of the entry that starts or stops
    bool canCancel = false;

    bool operator==(const TrayPresentation&) const = default;
};

[[nodiscard]] TrayPresentation presentTray(const RecordingState& state, const Translate& translate);

} // namespace quillo
