#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/Task.h"
#include "Core/AudioChunk.h"
#include "Services/Protocol/ServerMessage.h"
#include "Services/Protocol/SessionRequest.h"
#include "Services/Protocol/SessionTexts.h"

#include <QString>
#include <QStringList>

#include <stdexcept>

namespace quillo {

/// Why an operation on the connection failed. `what()` is for the log.
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

    /// `reason` is inserted if the code's text has a placeholder. `httpStatus` is the answer to a rejected upgrade
    /// ("bad response"), 0 otherwise.
    explicit WebSocketError(Code code, const QString& reason = {}, int httpStatus = 0);

    [[nodiscard]] Code code() const { return m_code; }
    [[nodiscard]] int httpStatus() const { return m_httpStatus; }

private:
    Code m_code;
    int m_httpStatus;
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
    /// The events of the current connection; one stream per connection.
    virtual AsyncStream<ServerMessage> receiveMessages() = 0;

    // Snapshots, readable from any thread.
    [[nodiscard]] virtual bool isConnected() const = 0;
    [[nodiscard]] virtual SessionTexts texts() const = 0;

    virtual void clearAllText() = 0;
    virtual void markRecoveredTextAsUsed() = 0;
};

} // namespace quillo
