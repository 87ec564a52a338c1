#include "Services/Protocol/ServerMessageEncoding.h"

#include "Core/AudioChunk.h"

#include <QStringBuilder>

#include <nlohmann/json.hpp>

namespace quillo::encoding {

namespace {

using Json = nlohmann::ordered_json;

Json list(const QStringList& texts) {
    auto array = Json::array();
    for (const auto& text : texts)
        array.push_back(text.toStdString());
    return array;
}

QString dump(const Json& message) {
    return QString::fromStdString(message.dump(-1, ' ', false, Json::error_handler_t::replace));
}

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
    json["languages"] = list(request.languages);
    json["mode"] = sessionMode(request).toStdString();
    json["audio_format"] = "linear16";
    json["sample_rate"] = static_cast<int>(AudioFormat::sampleRate);
    json["channels"] = AudioFormat::channels;
    if (request.appContext)
        json["app_context"] = request.appContext->toStdString();
    if (request.audioSources)
        json["audio_sources"] = list(*request.audioSources);
    if (request.commands) {
        auto& commands = json["commands"] = Json::array();
        for (const auto& command : *request.commands) {
            Json entry;
            entry["trigger"] = command.trigger.toStdString();
            entry["prompt"] = command.prompt.toStdString();
            entry["type"] = command.type.toStdString();
            commands.push_back(std::move(entry));
        }
    }
    json["enhanced_transcription"] = request.enhancedTranscription;
    if (request.enhancedConsentAt)
        json["enhanced_consent_at"] = request.enhancedConsentAt->toStdString();
    json["client_version"] = clientVersion.toStdString();
    if (request.clientRecordingId)
        json["client_recording_id"] = request.clientRecordingId->toStdString();
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
    json["audio_sources"] = list(audioSources);
    return dump(json);
}

QString systemAudioStatus(const QString& status) {
    auto json = message("system_audio_status");
    json["status"] = status.toStdString();
    return dump(json);
}

} // namespace quillo::encoding
