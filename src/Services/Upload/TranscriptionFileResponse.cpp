#include "Services/Upload/TranscriptionFileResponse.h"

#include "Core/Json.h"

#include <QStringList>

namespace quillo {

namespace {

using json::find;
using json::Json;
using json::readOptional;
using json::readRequired;

constexpr qsizetype longestMessage = 500; // characters

DiarizeSegment readSegment(const Json& object) {
    if (!object.is_object())
        json::reject("segments", "objects");
    DiarizeSegment segment;
    readRequired(object, "text", segment.text);
    readOptional(object, "speaker_label", segment.speakerLabel);
    readOptional(object, "start", segment.start);
    readOptional(object, "end", segment.end);
    readOptional(object, "start_formatted", segment.startFormatted);
    readOptional(object, "end_formatted", segment.endFormatted);
    return segment;
}

DiarizeResponse readDiarization(const Json& object) {
    DiarizeResponse response;
    std::optional<QString> plainText;
    std::optional<QString> processedText;
    readOptional(object, "plain_text", plainText);
    readOptional(object, "processed_text", processedText);
    if (!plainText && !processedText)
        throw std::runtime_error("\"plain_text\" is missing");
    response.plainText = plainText ? *plainText : *processedText;
    response.processedText = processedText ? *processedText : *plainText;
    if (const auto* const segments = find(object, "segments")) {
        if (!segments->is_array())
            json::reject("segments", "a list");
        response.segments.reserve(segments->size());
        for (const auto& segment : *segments)
            response.segments.push_back(readSegment(segment));
    }
    readOptional(object, "summary", response.summary);
    readOptional(object, "action_items", response.actionItems);
    readOptional(object, "speaker_count", response.speakerCount);
    readOptional(object, "stt_provider", response.sttProvider);
    readOptional(object, "total_words", response.totalWords);
    readOptional(object, "duration_ms", response.durationMs);
    return response;
}

/// The text of `key`, also where a framework wraps it in an object or a list of them.
QString messageIn(const Json& object, const char* key) {
    const auto* value = find(object, key);
    if (value && value->is_array() && !value->empty())
        value = &value->front();
    if (value && value->is_object())
        for (const auto* const inner : {"message", "msg", "detail"})
            if (const auto* const text = find(*value, inner); text && text->is_string())
                value = text;
    return value && value->is_string() ? json::textOf(*value).simplified() : QString();
}

} // namespace

bool DiarizationPollResponse::isDone() const {
    static const QStringList words{QStringLiteral("completed"), QStringLiteral("complete"), QStringLiteral("done"),
                                   QStringLiteral("success")};
    return words.contains(status.toLower());
}

bool DiarizationPollResponse::hasFailed() const {
    static const QStringList words{QStringLiteral("failed"), QStringLiteral("error"), QStringLiteral("cancelled"),
                                   QStringLiteral("expired")};
    return words.contains(status.toLower());
}

namespace transcriptionFileCoding {

TranscriptionFileResponse decodeTranscription(const QByteArray& json) {
    const auto object = json::parseObject(json);
    TranscriptionFileResponse response;
    readRequired(object, "text", response.text);
    readOptional(object, "language_detected", response.languageDetected);
    readOptional(object, "duration_ms", response.durationMs);
    readOptional(object, "word_count", response.wordCount);
    readOptional(object, "transcription_id", response.transcriptionId);
    return response;
}

DiarizeResponse decodeDiarization(const QByteArray& json) { return readDiarization(json::parseObject(json)); }

DiarizationPollResponse decodePoll(const QByteArray& json) {
    const auto object = json::parseObject(json);
    DiarizationPollResponse response;
    readRequired(object, "status", response.status);
    readOptional(object, "task_id", response.taskId);
    readOptional(object, "message", response.message);
    if (find(object, "plain_text") || find(object, "processed_text"))
        response.result = readDiarization(object);
    if (response.isDone() && !response.result)
        throw std::runtime_error("\"plain_text\" is missing");
    return response;
}

QString errorMessage(const QByteArray& body) {
    try {
        const auto object = json::parseObject(body);
        for (const auto* const key : {"detail", "message", "error", "code"})
            if (const auto text = messageIn(object, key); !text.isEmpty())
                return text.left(longestMessage);
    } catch (const std::runtime_error&) {
        return {}; // a page of a proxy, say
    }
    return {};
}

QString errorCode(const QByteArray& body) {
    try {
        return messageIn(json::parseObject(body), "code").left(longestMessage);
    } catch (const std::runtime_error&) {
        return {};
    }
}

} // namespace transcriptionFileCoding

} // namespace quillo
