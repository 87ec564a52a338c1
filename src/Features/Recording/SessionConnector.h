#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Why a start gave up: the action that shows it, and the reason for the log.
struct StartFailure {
    RecordingAction action;
    QString reason;
};

/// From a running capture to an open server session.
namespace sessionConnector {

/// A valid token, an open socket, `start_session` sent and the event loop running; nothing on success.
Task<std::optional<StartFailure>> open(RunHandle run);

/// Sends `start_session` (again); throws WebSocketError.
Task<> requestSession(RunHandle run);

} // namespace sessionConnector

} // namespace quillo
