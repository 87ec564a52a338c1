#include "Transport/ProtocolMessages.h"

#include "Foundation/Encoding.h"
#include "Transcription/TranscriptAssembler.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <stdexcept>

namespace quillo::server {
namespace {

constexpr size_t maxStrings = 100;
constexpr size_t maxRecordingIdLength = 1024;

std::vector<std::string> stringsOf(const Json& object, const char* key) {
    std::vector<std::string> strings;
    const auto found = object.find(key);
    if (found == object.end() || found->is_null())
        return strings;
    if (!found->is_array() || found->size() > maxStrings)
        throw std::invalid_argument(std::string("\"") + key + "\" must be a list of strings");
    for (const auto& item : *found) {
        if (!item.is_string())
            throw std::invalid_argument(std::string("\"") + key + "\" must be a list of strings");
        strings.push_back(item.get<std::string>());
    }
    return strings;
}

template <class Value>
void demand(const char* key, const std::optional<Value>& value, const Value& wanted, const char* text) {
    if (value && *value != wanted)
        throw std::invalid_argument(std::string("\"") + key + "\" must be " + text);
}

message::StartSession parseStart(const Json& json) {
    message::StartSession start;
    start.options.languages = stringsOf(json, "languages");
    start.options.enhanced = optionalBool(json, "enhanced_transcription").value_or(false);
    start.isMeeting = optionalString(json, "mode").value_or("streaming") == "meeting_streaming";
    start.audioSources = stringsOf(json, "audio_sources");
    start.recordingId = optionalString(json, "client_recording_id").value_or("");
    if (start.recordingId.size() > maxRecordingIdLength)
        throw std::invalid_argument("\"client_recording_id\" is too long");
    // The formats are fixed by the protocol; anything else would be recognised as noise.
    demand<std::string>("audio_format", optionalString(json, "audio_format"), "linear16", "\"linear16\"");
    demand<double>("sample_rate", optionalNumber(json, "sample_rate"), 16000, "16000");
    demand<double>("channels", optionalNumber(json, "channels"), 1, "1");
    return start;
}

message::AudioChunk parseAudio(const Json& json) {
    const auto found = json.find("data");
    if (found == json.end() || !found->is_string())
        throw std::invalid_argument("\"data\" must be a string");
    const auto bytes = decodeBase64(found->get_ref<const std::string&>());
    if (!bytes)
        throw std::invalid_argument("\"data\" must be standard base64");
    if (bytes->size() % 2 != 0)
        throw std::invalid_argument("\"data\" must hold whole 16-bit samples");
    static_assert(std::endian::native == std::endian::little, "samples arrive in little-endian order");
    message::AudioChunk chunk;
    chunk.samples.resize(bytes->size() / 2);
    if (!bytes->empty())
        std::memcpy(chunk.samples.data(), bytes->data(), bytes->size());
    return chunk;
}

ClientMessage parseObject(const Json& json) {
    const auto type = json.find("type");
    if (type == json.end() || !type->is_string())
        return message::Invalid{"the message has no \"type\""};
    const auto& name = type->get_ref<const std::string&>();
    if (name == "audio_chunk")
        return parseAudio(json);
    if (name == "start_session")
        return parseStart(json);
    if (name == "end_session")
        return message::EndSession{};
    if (name == "switch_to_meeting")
        return message::SwitchToMeeting{optionalNumber(json, "switch_timestamp"), stringsOf(json, "audio_sources")};
    if (name == "system_audio_status")
        return message::SystemAudioStatus{optionalString(json, "status").value_or("")};
    if (name == "ping")
        return message::Ping{};
    return message::Unknown{name.substr(0, 64)};
}

int64_t milliseconds(double seconds) { return std::llround(seconds * 1000); }

Json describe(const Transcript& transcript) {
    Json data{{"text", transcript.text}, {"confidence", transcript.confidence}};
    if (!transcript.language.empty())
        data["language"] = transcript.language;
    data["word_count"] = countWords(transcript.text);
    data["duration_ms"] = milliseconds(transcript.end - transcript.start);
    data["segment_start"] = transcript.start;
    data["segment_end"] = transcript.end;
    return data;
}

} // namespace

ClientMessage parseClientMessage(std::string_view frame) {
    const auto json = parseJson(frame);
    if (!json)
        return message::Invalid{"the frame is not valid JSON, or nests too deeply"};
    if (!json->is_object())
        return message::Invalid{"the frame is not a JSON object"};
    try {
        return parseObject(*json);
    } catch (const std::invalid_argument& error) {
        return message::Invalid{error.what()};
    }
}

std::string envelope(const char* type, Json data) {
    Json json{{"type", type}};
    json["data"] = std::move(data);
    return toText(json);
}

std::string connectedMessage() { return envelope("connected", Json::object()); }

std::string sessionStartedMessage(const std::string& sessionId) {
    return envelope("session_started", Json{{"session_id", sessionId}});
}

std::string partialTranscriptMessage(const Transcript& transcript) {
    return envelope("partial_transcript", describe(transcript));
}

std::string finalTranscriptMessage(const Transcript& transcript) {
    return envelope("final_transcript", describe(transcript));
}

std::string languageDetectedMessage(const std::string& language, double confidence) {
    return envelope("language_detected", Json{{"language", language}, {"confidence", confidence}});
}

std::string sessionEndedMessage(const SessionSummary& summary, const Json& meeting) {
    const int64_t words = countWords(summary.text);
    Json data{{"text", summary.text}, {"word_count", words}, {"total_words", words}};
    data["duration_ms"] = summary.durationMs;
    if (!summary.text.empty())
        data["confidence"] = summary.confidence;
    if (!summary.language.empty()) {
        data["language"] = summary.language;
        data["detected_language"] = summary.language;
        data["language_detected"] = summary.language;
    }
    data["metrics_id"] = summary.metricsId;
    data["transcription_id"] = summary.transcriptionId;
    data["stt_provider"] = summary.provider;
    data.update(meeting);
    return envelope("session_ended", std::move(data));
}

std::string errorMessage(const std::string& code, const std::string& text, const std::string& details) {
    Json data{{"code", code}, {"message", text}};
    if (!details.empty())
        data["details"] = details;
    return envelope("error", std::move(data));
}

std::string pongMessage() { return envelope("pong", Json::object()); }

} // namespace quillo::server
