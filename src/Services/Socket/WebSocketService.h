#pragma once

#include "Concurrency/Clock.h"
#include "Services/Socket/WebSocketConfig.h"
#include "Services/Socket/WebSocketServiceProtocol.h"

#include <memory>

namespace quillo {

/// The connection to the transcription server over a real WebSocket.
///
/// An actor: the socket and its state live on the service's own thread. Calls are posted there and their results are
/// awaited on the main thread; only our own queues cross threads.
class WebSocketService final : public WebSocketServiceProtocol {
public:
    using Timeouts = WebSocketTimeouts;
    using Config = WebSocketConfig;

    /// `clock` belongs to the main thread and must outlive the service.
    WebSocketService(Config config, Clock& clock);
    /// Drops the connection; running operations fail with `connectionCancelled` or `notConnected`.
    ~WebSocketService() override;

    Task<> connect() override;
    Task<> disconnect() override;
    Task<> startSession(SessionRequest request) override;
    Task<> sendAudio(AudioChunk chunk, bool hasSpeech) override;
    Task<> endSession() override;
    Task<> sendSwitchToMeeting(double switchTimestamp, QStringList audioSources) override;
    Task<> sendSystemAudioStatus(QString status) override;
    AsyncStream<ServerMessage> receiveMessages() override;

    [[nodiscard]] bool isConnected() const override;
    [[nodiscard]] SessionTexts texts() const override;

    void clearAllText() override;
    void markRecoveredTextAsUsed() override;

private:
    struct Core;
    std::shared_ptr<Core> m_core;
};

} // namespace quillo
