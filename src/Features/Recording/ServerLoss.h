#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// Continues a dictation without the server.
namespace serverLoss {

/// The connection was lost or never made. During the recording, the audio goes on to disk only; after it, the wait for
/// the server's result ends. `error` is for the log. With `refusal` the server will not transcribe this dictation, and
/// the user learns the reason at its end.
void goOffline(const RunHandle& run, const QString& error, std::optional<ServerRefusal> refusal = std::nullopt);

/// No session will start or send anything more.
void endWaits(RecordingRun& run);

} // namespace serverLoss

} // namespace quillo
