#pragma once

#include "Services/Protocol/ServerMessage.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace quillo {

/// The "data" of a server message. A key that is absent, null or of the wrong type leaves its field unset.
struct ResponseData {
    std::optional<QString> sessionId, text, language, speaker, sourceChannel;
    std::optional<double> confidence, segmentStart, segmentEnd, timestamp, switchTimestamp;
    std::optional<int> wordCount, durationMs, speakerCount, totalWords;
    std::optional<QString> metricsId, transcriptionId, sttProvider;
    std::optional<QString> code, message, details, error, channel;
    std::optional<std::vector<TranscriptSegment>> segments;
    /// The segments of all channels of a two-channel meeting, in the order of the channels.
    std::optional<std::vector<TranscriptSegment>> channels;
    std::optional<bool> micOnlyFallback, cleanupApplied, commandApplied;
    std::optional<QString> processedText, originalText, plainText, labeledText;
    std::optional<QString> commandText, commandType, presetName;
    std::optional<QString> status, taskId, diarizationTaskId, diarizationStatus, summary, actionItems;
    std::optional<LanguageMismatch> languageMismatch;
    std::optional<QString> detectedLanguage, languageDetected;
};

/// The envelope of every server message.
struct ServerResponse {
    /// A longer frame, in bytes, is dropped unread. The longest real one, the end of an eight-hour meeting with its
    /// segments, is about 4 MiB.
    static constexpr qsizetype longestFrame = 8LL * 1024 * 1024;

    QString type;
    ResponseData data;
    /// Keys whose value had the wrong type, each as "key: expected type".
    QStringList typeFaults;

    /// Nothing when `frame` is not a JSON object with a string "type". Accepts any bytes; any thread.
    static std::optional<ServerResponse> decode(const QByteArray& frame);
};

} // namespace quillo
