#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/Task.h"
#include "Core/AudioChunk.h"
#include "Services/ServerMessage.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <stdexcept>
#include <vector>

namespace quillo {

/// A spoken phrase bound to an instruction for the server's language model.
struct VoiceCommandEntry {
    QString trigger;
    QString prompt;
    QString type;
    bool operator==(const VoiceCommandEntry&) const = default;
};

/// What `startSession` sends; an absent option is left out of the message.
struct SessionRequest {
    QStringList languages;
    std::optional<QString> appContext;
    std::optional<QStringList> audioSources;
    std::optional<QString> mode;
    std::optional<std::vector<VoiceCommandEntry>> commands;
    bool enhancedTranscription = false;
    std::optional<QString> enhancedConsentAt;
    std::optional<QString> clientRecordingId;
};

/// Why an operation on the connection failed. `what()` is the text to show.
class WebSocketError : public std::runtime_error {
public:
    enum class Code {
        connectionFailed,
        receiveFailed,
        serverError,
        invalidURL,
        notConnected,
        notAuthenticated,
        connectionCancelled,
        sessionStartFailed,
    };

    /// `reason` is inserted where the code's text has room for one. `httpStatus` is the answer to a rejected upgrade
    /// ("bad response"), 0 otherwise.
    explicit WebSocketError(Code code, const QString& reason = {}, int httpStatus = 0);

    [[nodiscard]] Code code() const { return m_code; }
    [[nodiscard]] int httpStatus() const { return m_httpStatus; }
    /// The server answered the upgrade with something else than 101.
    [[nodiscard]] bool isRejectedUpgrade() const { return m_httpStatus != 0; }

private:
    Code m_code;
    int m_httpStatus;
};

/// What the connection keeps of the session: survives the connection, cleared by `clearAllText`.
struct SessionTexts {
    QString accumulatedText; ///< final transcripts of the session joined together
    QString lastPartialText;
    QString savedTextFromDisconnect;
    bool hasRecoveredText = false;
    bool commandWasApplied = false;
    QString originalTextBeforeCommand;
    QString rawTextBeforeCleanup;
    int lastSpeakerCount = 0;
    QString plainTextForInjection;
    QString lastLabeledText;
    std::vector<TranscriptSegment> lastMeetingSegments;
    std::vector<TranscriptSegment> lastChannelSegments;
    bool lastMicOnlyFallback = false;
    std::optional<QString> lastDiarizationTaskId;
    std::optional<QString> lastDiarizationStatus;
    QString lastMeetingSummary;
    QString lastMeetingActionItems;
    std::optional<LanguageMismatch> lastLanguageMismatch;

    /// The accumulated text, else the meeting's plain text, else the last partial, else what was saved at a disconnect.
    [[nodiscard]] QString bestAvailableText() const;
    /// The meeting's plain text, else the best available.
    [[nodiscard]] QString textForInjection() const;
};

/// One streaming connection to the transcription server at a time. Called on the main thread; the work runs on the
/// service's own serial context. Every asynchronous operation throws WebSocketError.
///
/// Order for one dictation: connect, receiveMessages, startSession, sendAudio any number of times, endSession, wait for
/// `server::SessionEnded`, disconnect.
class WebSocketServiceProtocol {
public:
    virtual ~WebSocketServiceProtocol() = default;

    /// Returns once the server's "connected" has arrived.
    virtual Task<> connect() = 0;
    /// Ends the connection from this side; a connect under way fails with `connectionCancelled`.
    virtual Task<> disconnect() = 0;
    virtual Task<> startSession(SessionRequest request) = 0;
    /// Queues the chunk in order; suspends only while too much is unsent.
    virtual Task<> sendAudio(AudioChunk chunk, bool hasSpeech) = 0;
    virtual Task<> endSession() = 0;
    virtual Task<> sendSwitchToMeeting(double switchTimestamp, QStringList audioSources) = 0;
    virtual Task<> sendSystemAudioStatus(QString status) = 0;
    /// The events of the present connection; one stream per connection.
    virtual AsyncStream<ServerMessage> receiveMessages() = 0;

    // Snapshots, readable from any thread.
    [[nodiscard]] virtual bool isConnected() const = 0;
    [[nodiscard]] virtual SessionTexts texts() const = 0;

    virtual void clearAllText() = 0;
    virtual void markRecoveredTextAsUsed() = 0;
};

} // namespace quillo
