#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Why there is no connection.
struct ConnectFailure {
    QString error; ///< for the log
    /// The server said no, so that the person must act; absent when it could not be reached.
    std::optional<ServerRefusal> refusal;
};

/// From a running capture to an open socket.
namespace serverConnection {

/// A valid token, the dictation's turn with the connection, an open socket; nothing on success.
Task<std::optional<ConnectFailure>> open(RunHandle run);

} // namespace serverConnection

} // namespace quillo
