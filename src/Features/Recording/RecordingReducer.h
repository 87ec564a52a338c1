#pragma once

#include "Architecture/Reducer.h"
#include "Features/Recording/RecordingAction.h"
#include "Features/Recording/RecordingEffect.h"
#include "Features/Recording/RecordingState.h"

#include <QDateTime>

#include <functional>

namespace quillo {

/// The state machine of a dictation: every transition, its guard, and its effect. An action that is not valid in the
/// current status does not change the state, so that a late action of a slow side effect cannot move the machine
/// backwards. Pure except for the time of `startRecording` and log lines; main thread.
class RecordingReducer {
public:
    /// `wallTime` returns the start time of a recording, UTC.
    explicit RecordingReducer(std::function<QDateTime()> wallTime);

    [[nodiscard]] Reduction<RecordingState, RecordingEffect> reduce(const RecordingState& state,
                                                                    const RecordingAction& action) const;

private:
    std::function<QDateTime()> m_wallTime;
};

static_assert(Reducer<RecordingReducer, RecordingState, RecordingAction, RecordingEffect>);

} // namespace quillo
