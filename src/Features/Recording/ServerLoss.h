#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// What becomes of a dictation that has to do without the server.
namespace serverLoss {

/// There is no connection any more, or there never was. While the person speaks the recording goes on to disk alone;
/// after that the wait for the server's last word ends. `error` is for the log. With `refusal` the server will not
/// transcribe this dictation, and the person reads at its end why.
void goOffline(const RunHandle& run, const QString& error, std::optional<ServerRefusal> refusal = std::nullopt);

/// No session will start or say anything more.
void endWaits(RecordingRun& run);

} // namespace serverLoss

} // namespace quillo
