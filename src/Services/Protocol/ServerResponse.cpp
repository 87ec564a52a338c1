#include "Services/Protocol/ServerResponse.h"

#include "Core/Json.h"

namespace quillo {

namespace {

using json::Json;

const char* nameOf(const QString&) { return "string"; }
const char* nameOf(double) { return "number"; }
const char* nameOf(bool) { return "boolean"; }
const char* nameOf(int) { return "integer"; }

/// Reads the keys of one object and records those of the wrong type.
class Reader {
public:
    Reader(const Json& object, QStringList& faults) : m_object(object), m_faults(faults) {}

    template <class T>
    void read(const char* key, std::optional<T>& field) {
        T value{};
        if (const auto* const found = find(key)) {
            if (json::convert(*found, value))
                field = std::move(value);
            else
                fault(key, nameOf(value));
        }
    }

    template <class T>
    void read(const char* key, T& field) {
        std::optional<T> value;
        read(key, value);
        if (value)
            field = std::move(*value);
    }

    const Json* find(const char* key) const { return json::find(m_object, key); }

    void fault(const char* key, const char* expected) {
        m_faults.append(QStringLiteral("%1: expected %2").arg(QLatin1String(key), QLatin1String(expected)));
    }

private:
    const Json& m_object;
    QStringList& m_faults;
};

void appendSegments(const Json& array, const QString& channel, std::vector<TranscriptSegment>& segments,
                    QStringList& faults) {
    for (const auto& element : array) {
        if (!element.is_object()) {
            faults.append(QStringLiteral("segments: expected objects"));
            continue;
        }
        TranscriptSegment segment;
        segment.sourceChannel = channel;
        Reader reader(element, faults);
        reader.read("text", segment.text);
        reader.read("speaker", segment.speaker);
        reader.read("source_channel", segment.sourceChannel);
        reader.read("segment_start", segment.segmentStart);
        reader.read("segment_end", segment.segmentEnd);
        segments.push_back(std::move(segment));
    }
}

void readSegments(Reader& reader, ResponseData& data, QStringList& faults) {
    const auto* const found = reader.find("segments");
    if (!found)
        return;
    if (!found->is_array())
        return reader.fault("segments", "array");
    appendSegments(*found, {}, data.segments.emplace(), faults);
}

/// A channel is an array of segments, or an object that holds one under "segments".
void readChannels(Reader& reader, ResponseData& data, QStringList& faults) {
    const auto* const found = reader.find("channels");
    if (!found)
        return;
    if (!found->is_object())
        return reader.fault("channels", "object");
    auto& segments = data.channels.emplace();
    for (const auto& [name, channel] : found->items()) {
        const auto* content = &channel;
        if (channel.is_object() && channel.contains("segments"))
            content = &channel["segments"];
        if (content->is_array())
            appendSegments(*content, QString::fromStdString(name), segments, faults);
        else if (!content->is_null() && !content->is_object())
            reader.fault("channels", "segments by channel");
    }
}

void readMismatch(Reader& reader, ResponseData& data, QStringList& faults) {
    const auto* const found = reader.find("language_mismatch");
    if (!found)
        return;
    if (!found->is_object())
        return reader.fault("language_mismatch", "object");
    auto& mismatch = data.languageMismatch.emplace();
    Reader inner(*found, faults);
    inner.read("configured_language", mismatch.configuredLanguage);
    inner.read("detected_language", mismatch.detectedLanguage);
    inner.read("detected_language_name", mismatch.detectedLanguageName);
    inner.read("confidence", mismatch.confidence);
}

ResponseData readData(const Json& object, QStringList& faults) {
    ResponseData data;
    Reader reader(object, faults);
    reader.read("session_id", data.sessionId);
    reader.read("text", data.text);
    reader.read("confidence", data.confidence);
    reader.read("language", data.language);
    reader.read("word_count", data.wordCount);
    reader.read("duration_ms", data.durationMs);
    reader.read("speaker", data.speaker);
    reader.read("source_channel", data.sourceChannel);
    reader.read("segment_start", data.segmentStart);
    reader.read("segment_end", data.segmentEnd);
    reader.read("timestamp", data.timestamp);
    reader.read("switch_timestamp", data.switchTimestamp);
    reader.read("metrics_id", data.metricsId);
    reader.read("transcription_id", data.transcriptionId);
    reader.read("stt_provider", data.sttProvider);
    reader.read("code", data.code);
    reader.read("message", data.message);
    reader.read("details", data.details);
    reader.read("error", data.error);
    reader.read("channel", data.channel);
    reader.read("speaker_count", data.speakerCount);
    readSegments(reader, data, faults);
    readChannels(reader, data, faults);
    reader.read("mic_only_fallback", data.micOnlyFallback);
    reader.read("cleanup_applied", data.cleanupApplied);
    reader.read("command_applied", data.commandApplied);
    reader.read("processed_text", data.processedText);
    reader.read("original_text", data.originalText);
    reader.read("plain_text", data.plainText);
    reader.read("labeled_text", data.labeledText);
    reader.read("total_words", data.totalWords);
    reader.read("command_text", data.commandText);
    reader.read("command_type", data.commandType);
    reader.read("preset_name", data.presetName);
    reader.read("status", data.status);
    reader.read("task_id", data.taskId);
    reader.read("diarization_task_id", data.diarizationTaskId);
    reader.read("diarization_status", data.diarizationStatus);
    reader.read("summary", data.summary);
    reader.read("action_items", data.actionItems);
    readMismatch(reader, data, faults);
    reader.read("detected_language", data.detectedLanguage);
    reader.read("language_detected", data.languageDetected);
    return data;
}

} // namespace

std::optional<ServerResponse> ServerResponse::decode(const QByteArray& frame) {
    if (frame.size() > longestFrame)
        return std::nullopt;
    const auto message = json::parse(frame);
    const auto type = message ? json::value<QString>(*message, "type") : std::nullopt;
    if (!type)
        return std::nullopt;
    ServerResponse response;
    response.type = *type;
    if (const auto* const data = json::find(*message, "data")) {
        if (data->is_object())
            response.data = readData(*data, response.typeFaults);
        else
            response.typeFaults.append(QStringLiteral("data: expected object"));
    }
    return response;
}

} // namespace quillo
