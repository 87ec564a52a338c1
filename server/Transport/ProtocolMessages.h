#pragma once

#include "Foundation/Json.h"
#include "Transcription/Recogniser.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace quillo::server {

/// The messages of a client of "/ws/v3/transcribe".
namespace message {

struct StartSession {
    RecognitionOptions options;
    bool isMeeting = false; ///< "mode" = "meeting_streaming"
    /// "audio_sources"; empty when the client does not name them.
    std::vector<std::string> audioSources;
    std::string recordingId; ///< "client_recording_id"; may be empty
};
struct AudioChunk {
    std::vector<int16_t> samples;
};
struct EndSession {};
struct SwitchToMeeting {
    std::optional<double> timestamp; ///< seconds on the client's clock; only sent back
    std::vector<std::string> audioSources;
};
struct SystemAudioStatus {
    std::string status;
};
struct Ping {};
/// A type this server does not know; ignored, so that newer clients work.
struct Unknown {
    std::string type;
};
/// Not a message: the text says what is wrong with it.
struct Invalid {
    std::string reason;
};

} // namespace message

using ClientMessage =
    std::variant<message::StartSession, message::AudioChunk, message::EndSession, message::SwitchToMeeting,
                 message::SystemAudioStatus, message::Ping, message::Unknown, message::Invalid>;

/// Decodes one text frame. Never throws.
ClientMessage parseClientMessage(std::string_view frame);

/// The result of a session.
struct SessionSummary {
    std::string text;
    std::string language; ///< empty when unknown
    double confidence = 0;
    int64_t durationMs = 0;
    std::string metricsId;
    std::string transcriptionId;
    std::string provider;
};

/// Text frames to the client: {"type": ..., "data": {...}}.
std::string envelope(const char* type, Json data);
std::string connectedMessage();
std::string sessionStartedMessage(const std::string& sessionId);
std::string partialTranscriptMessage(const Transcript& transcript);
std::string finalTranscriptMessage(const Transcript& transcript);
std::string languageDetectedMessage(const std::string& language, double confidence);
/// `meeting`: further keys, of a meeting.
std::string sessionEndedMessage(const SessionSummary& summary, const Json& meeting = Json::object());
std::string errorMessage(const std::string& code, const std::string& text, const std::string& details = {});
std::string pongMessage();

} // namespace quillo::server
