#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

namespace quillo {

/// The text of a file. JSON keys: "text", "language_detected", "duration_ms", "word_count", "transcription_id".
struct TranscriptionFileResponse {
    QString text;
    std::optional<QString> languageDetected;
    std::optional<int64_t> durationMs;
    std::optional<int64_t> wordCount;
    std::optional<QString> transcriptionId;
    bool operator==(const TranscriptionFileResponse&) const = default;
};

/// Consecutive speech of one speaker. JSON keys: "speaker_label", "start", "end", "start_formatted", "end_formatted",
/// "text".
struct DiarizeSegment {
    QString speakerLabel;
    double start = 0; ///< seconds
    double end = 0;   ///< seconds
    QString startFormatted;
    QString endFormatted;
    QString text;
    bool operator==(const DiarizeSegment&) const = default;
};

/// A meeting by speakers. JSON keys: "plain_text", "processed_text", "segments", "summary", "action_items",
/// "speaker_count", "stt_provider", "total_words", "duration_ms".
struct DiarizeResponse {
    QString plainText;
    QString processedText;
    std::vector<DiarizeSegment> segments;
    std::optional<QString> summary;
    std::optional<QString> actionItems;
    std::optional<int64_t> speakerCount;
    std::optional<QString> sttProvider;
    std::optional<int64_t> totalWords;
    std::optional<int64_t> durationMs;
    bool operator==(const DiarizeResponse&) const = default;
};

/// The progress of a diarization. JSON keys: "status", "task_id", "message", and those of `DiarizeResponse` once it is
/// done.
struct DiarizationPollResponse {
    QString status;
    QString taskId;
    std::optional<QString> message;
    std::optional<DiarizeResponse> result;

    /// All words that servers use for a finished task: "completed", "complete", "done", "success".
    [[nodiscard]] bool isDone() const;
    /// "failed", "error", "cancelled", "expired".
    [[nodiscard]] bool hasFailed() const;
    bool operator==(const DiarizationPollResponse&) const = default;
};

/// Decodes the server's answers. Each function throws std::runtime_error naming a missing key or a wrong type. Only the
/// text is required, null counts as absent, and unknown keys are ignored. Accepts any bytes; any thread.
namespace transcriptionFileCoding {

TranscriptionFileResponse decodeTranscription(const QByteArray& json);
DiarizeResponse decodeDiarization(const QByteArray& json);
DiarizationPollResponse decodePoll(const QByteArray& json);

/// The message of an error body: the first of "detail", "message", "error" and "code"; empty without one. On a single
/// line, shortened for display.
QString errorMessage(const QByteArray& body);
/// Its "code"; empty without one.
QString errorCode(const QByteArray& body);

} // namespace transcriptionFileCoding

} // namespace quillo
