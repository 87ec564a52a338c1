#pragma once

#include "Services/Protocol/SessionRequest.h"

#include <QByteArray>
#include <QString>

namespace quillo {

/// The client's messages as JSON text frames: keys in the order the protocol lists them, absent options left out.
/// Pure functions, any thread.
namespace encoding {

/// The default mode is "meeting_streaming" for more than one audio source, otherwise "streaming".
QString startSession(const SessionRequest& request, const QString& clientVersion);
/// The mode that `startSession` sends for `request`.
QString sessionMode(const SessionRequest& request);
/// Sends `data` unchanged: chunks are neither re-framed nor padded.
QString audioChunk(const QByteArray& data);
QString endSession();
/// `switchTimestamp` in seconds.
QString switchToMeeting(double switchTimestamp, const QStringList& audioSources);
QString systemAudioStatus(const QString& status);

} // namespace encoding

} // namespace quillo
