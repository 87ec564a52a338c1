#pragma once

#include "Core/TranscriptionResult.h"

#include <QString>

#include <optional>
#include <variant>
#include <vector>

namespace quillo {

/// A segment of a meeting, as in the server's messages.
struct TranscriptSegment {
    QString text;
    QString speaker;
    QString sourceChannel;
    double segmentStart = 0; ///< seconds from the session start
    double segmentEnd = 0;
    bool operator==(const TranscriptSegment&) const = default;
};

/// The dictation was in another language than the one configured.
struct LanguageMismatch {
    QString configuredLanguage;
    QString detectedLanguage;
    QString detectedLanguageName;
    double confidence = 0;
    bool operator==(const LanguageMismatch&) const = default;
};

/// The server's messages, decoded, and `ConnectionLost`, which the client creates.
namespace server {
struct SessionStarted {
    QString sessionId;
    bool operator==(const SessionStarted&) const = default;
};
struct PartialTranscript {
    TranscriptionResult result;
    bool operator==(const PartialTranscript&) const = default;
};
struct FinalTranscript {
    TranscriptionResult result;
    bool operator==(const FinalTranscript&) const = default;
};
struct SessionEnded {
    QString text; ///< the final text, chosen from raw, cleaned-up and command text
    std::optional<QString> metricsId;
    std::optional<QString> transcriptionId;
    std::optional<QString> sttProvider;
    std::optional<QString> languageDetected;
    std::optional<int> totalWords;
    std::optional<int> durationMs;
    bool commandApplied = false;
    bool cleanupApplied = false;
    std::optional<LanguageMismatch> languageMismatch;
    bool operator==(const SessionEnded&) const = default;
};
struct Error {
    QString code;
    QString message;
    bool operator==(const Error&) const = default;
};
struct LanguageDetected {
    QString language;
    double confidence = 0;
    bool operator==(const LanguageDetected&) const = default;
};
struct Unknown {
    QString type;
    bool operator==(const Unknown&) const = default;
};
struct ConnectionLost {
    QString error;
    bool operator==(const ConnectionLost&) const = default;
};
struct CommandDetected {
    QString commandText;
    QString commandType;
    bool operator==(const CommandDetected&) const = default;
};
struct CommandResult {
    QString processedText;
    QString originalText;
    std::optional<QString> presetName;
    bool operator==(const CommandResult&) const = default;
};
struct MeetingModeActivated {
    double timestamp = 0;
    bool operator==(const MeetingModeActivated&) const = default;
};
struct MeetingTextUpdate {
    QString text;
    std::optional<QString> speaker;
    std::optional<QString> channel;
    bool operator==(const MeetingTextUpdate&) const = default;
};
struct DiarizationComplete {
    QString taskId;
    std::vector<TranscriptSegment> segments;
    QString labeledText;
    int speakerCount = 0;
    QString summary;
    QString actionItems;
    bool operator==(const DiarizationComplete&) const = default;
};
struct DiarizationFailed {
    QString taskId;
    QString error;
    bool operator==(const DiarizationFailed&) const = default;
};
struct Connected {
    bool operator==(const Connected&) const = default;
};
struct Pong {
    bool operator==(const Pong&) const = default;
};
struct CommandProcessing {
    bool operator==(const CommandProcessing&) const = default;
};
} // namespace server

/// One of the messages. Its copies and moves are compiled once, which saves every reader their table of cases.
class ServerMessage
    : public std::variant<server::SessionStarted, server::PartialTranscript, server::FinalTranscript,
                          server::SessionEnded, server::Error, server::LanguageDetected, server::Unknown,
                          server::ConnectionLost, server::CommandDetected, server::CommandResult,
                          server::MeetingModeActivated, server::MeetingTextUpdate, server::DiarizationComplete,
                          server::DiarizationFailed, server::Connected, server::Pong, server::CommandProcessing> {
public:
    using variant::variant;
    ServerMessage(const ServerMessage&);
    ServerMessage(ServerMessage&&) noexcept;
    ServerMessage& operator=(const ServerMessage&);
    ServerMessage& operator=(ServerMessage&&) noexcept;
    ~ServerMessage();
};

} // namespace quillo
