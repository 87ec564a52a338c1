#pragma once

#include "Meetings/MeetingText.h"
#include "Tasks/Task.h"
#include "Transport/ProtocolMessages.h"

namespace quillo::server {

/// `position` is where the meeting begins, in seconds of the session's audio.
std::string meetingModeActivatedMessage(double position, const std::optional<double>& switchTimestamp);
std::string meetingTextUpdateMessage(const Transcript& piece);

/// The keys that a meeting adds to "session_ended". Empty `task`: its speakers will not be separated.
Json meetingEnd(const std::vector<Transcript>& pieces, bool isMicrophoneOnly, const std::optional<Task>& task);
/// "session_ended" of a meeting, without its segments when it would be too long for one frame.
std::string meetingEndedMessage(const SessionSummary& summary, Json meeting);

/// "diarization_complete" or "diarization_failed" for a task that is over.
std::string diarizationMessage(const Task& task);

} // namespace quillo::server
