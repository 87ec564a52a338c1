#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Why there is no connection.
struct ConnectFailure {
    QString error; ///< for the log
    /// The server refused, so that the user must act; absent when it could not be reached.
    std::optional<ServerRefusal> refusal;
};

/// Connects a dictation to the server.
namespace serverConnection {

/// Obtains a valid token, waits for the dictation's turn with the connection, and opens the socket. Returns nothing on
/// success.
Task<std::optional<ConnectFailure>> open(RunHandle run);

} // namespace serverConnection

} // namespace quillo
