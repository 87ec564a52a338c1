#pragma once

#include "Concurrency/Clock.h"
#include "Services/Auth/TokenStorageProtocol.h"
#include "Services/Network/TrustedNetwork.h"
#include "Services/Socket/WebSocketServiceProtocol.h"

#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace quillo {

/// The connection to the transcription server over a real WebSocket.
///
/// An actor: the socket and its state live on the service's own thread. Calls are posted there and their results are
/// awaited on the main thread; only our own queues cross threads.
class WebSocketService final : public WebSocketServiceProtocol {
public:
    struct Timeouts {
        std::chrono::seconds handshake{60}; ///< from `connect` to the server's "connected"
        std::chrono::seconds idle{3600};    ///< the longest time between two messages of the server
        std::chrono::seconds total{3900};   ///< the longest lifetime of a connection
    };

    struct Config {
        std::function<QUrl()> serverURL; ///< called on the main thread at each connect
        std::shared_ptr<TokenStorageProtocol> tokenStorage;
        std::optional<QString> staticToken; ///< takes precedence over the storage
        std::shared_ptr<TrustedNetwork> trust;
        QString clientVersion;
        bool allowsMissingToken = false; ///< for development: connects without a token
        Timeouts timeouts;
        /// Sends suspend while more than this is unsent, in bytes: about 25 seconds of audio.
        qint64 unsentLimit = 1024LL * 1024;
    };

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
