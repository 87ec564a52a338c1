#include "Services/Protocol/ServerMessageEncoding.h"

#include "Core/AudioChunk.h"
#include "Core/Json.h"

#include <QStringBuilder>

namespace quillo::encoding {

namespace {

using json::Json;

QString dump(const Json& message) { return QString::fromUtf8(json::encode(message)); }

Json message(const char* type) {
    Json json;
    json["type"] = type;
    return json;
}

} // namespace

QString sessionMode(const SessionRequest& request) {
    if (request.mode)
        return *request.mode;
    const bool isMeeting = request.audioSources && request.audioSources->size() > 1;
    return isMeeting ? QStringLiteral("meeting_streaming") : QStringLiteral("streaming");
}

QString startSession(const SessionRequest& request, const QString& clientVersion) {
    auto json = message("start_session");
    json["languages"] = json::of(request.languages);
    json["mode"] = json::of(sessionMode(request));
    json["audio_format"] = "linear16";
    json["sample_rate"] = static_cast<int>(AudioFormat::sampleRate);
    json["channels"] = AudioFormat::channels;
    if (request.appContext)
        json["app_context"] = json::of(*request.appContext);
    if (request.audioSources)
        json["audio_sources"] = json::of(*request.audioSources);
    if (request.commands) {
        auto& commands = json["commands"] = Json::array();
        for (const auto& command : *request.commands) {
            Json entry;
            entry["trigger"] = json::of(command.trigger);
            entry["prompt"] = json::of(command.prompt);
            entry["type"] = json::of(command.type);
            commands.push_back(std::move(entry));
        }
    }
    json["enhanced_transcription"] = request.enhancedTranscription;
    if (request.enhancedConsentAt)
        json["enhanced_consent_at"] = json::of(*request.enhancedConsentAt);
    json["client_version"] = json::of(clientVersion);
    if (request.clientRecordingId)
        json["client_recording_id"] = json::of(*request.clientRecordingId);
    return dump(json);
}

QString audioChunk(const QByteArray& data) {
    // Sent ten times a second during a dictation. Base64 needs no escaping, so assemble the frame directly: a JSON
    // writer would scan every character again.
    return u"{\"type\":\"audio_chunk\",\"data\":\"" % QLatin1String(data.toBase64()) % u"\"}";
}

QString endSession() { return dump(message("end_session")); }

QString switchToMeeting(double switchTimestamp, const QStringList& audioSources) {
    auto json = message("switch_to_meeting");
    json["switch_timestamp"] = switchTimestamp;
    json["audio_sources"] = json::of(audioSources);
    return dump(json);
}

QString systemAudioStatus(const QString& status) {
    auto json = message("system_audio_status");
    json["status"] = json::of(status);
    return dump(json);
}

} // namespace quillo::encoding
