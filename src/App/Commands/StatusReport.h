#pragma once

#include "Features/Recording/RecordingSideEffects.h"
#include "Features/Recording/RecordingState.h"
#include "Services/Hotkeys/HotkeyServiceProtocol.h"

namespace quillo {

/// The parts of the status that do not concern the dictation.
struct StatusSurroundings {
    QString server; ///< "HOST" or "HOST:PORT"
    bool hotkeysArmed = false;
    std::vector<HotkeyConflict> conflicts{};
    QString microphone; ///< its name; empty when none is known
};

/// The answer of `Commands::status`: one JSON object. Durations are milliseconds.
[[nodiscard]] QString statusReport(const RecordingState& state, const std::optional<RecordingReport>& lastRun,
                                   const StatusSurroundings& surroundings);

} // namespace quillo
