#pragma once

#include "Services/Socket/WebSocketServiceProtocol.h"

#include <deque>
#include <functional>
#include <vector>

namespace quillo {

/// A scripted connection: it records the calls, and the test yields the server's messages. Main thread. Header-only, as
/// it is used with the protocol's library alone.
class MockWebSocketService : public WebSocketServiceProtocol {
public:
    // Scripted by the test.
    std::deque<WebSocketError> connectErrors; ///< each fails one connect, in order; afterwards they succeed
    std::optional<WebSocketError> sendError;  ///< fails everything that is sent
    /// When set, a connect or a chunk waits here, as with a slow server or network.
    std::function<Task<>()> beforeConnect;
    std::function<Task<>()> beforeAudio;
    SessionTexts currentTexts;

    // Recorded calls.
    int connects = 0;
    int disconnects = 0;
    std::vector<SessionRequest> sessions;
    bool keepsAudio = true; ///< in `audio`
    std::vector<AudioChunk> audio;
    int endedSessions = 0;
    std::vector<std::pair<double, QStringList>> meetingSwitches;
    QStringList systemAudioStatuses;
    int clearedTexts = 0;

    /// Delivers `message` to the reader of the connection's events; "connected" is sent automatically.
    void yield(ServerMessage message) {
        if (m_events)
            m_events.yield(std::move(message));
    }

    /// Breaks the connection: yields `ConnectionLost`, then ends the events.
    void lose(const QString& reason) {
        m_isConnected = false;
        yield(server::ConnectionLost{
            QString::fromUtf8(WebSocketError(WebSocketError::Code::receiveFailed, reason).what())});
        finish();
    }

    Task<> connect() override {
        ++connects;
        if (beforeConnect)
            co_await beforeConnect();
        if (!connectErrors.empty()) {
            const auto error = connectErrors.front();
            connectErrors.pop_front();
            throw error;
        }
        auto [stream, sink] = AsyncStream<ServerMessage>::make(EventExecutor::main());
        m_stream.emplace(std::move(stream));
        m_events = sink;
        m_isConnected = true;
        yield(server::Connected{});
    }

    Task<> disconnect() override {
        ++disconnects;
        m_isConnected = false;
        finish();
        return done();
    }

    Task<> startSession(SessionRequest request) override {
        sessions.push_back(std::move(request));
        return sent();
    }

    Task<> sendAudio(AudioChunk chunk, bool /*hasSpeech*/) override {
        if (beforeAudio)
            co_await beforeAudio();
        if (!sendError && keepsAudio)
            audio.push_back(std::move(chunk));
        co_await sent();
    }

    Task<> endSession() override {
        ++endedSessions;
        return sent();
    }

    Task<> sendSwitchToMeeting(double switchTimestamp, QStringList audioSources) override {
        meetingSwitches.emplace_back(switchTimestamp, std::move(audioSources));
        return sent();
    }

    Task<> sendSystemAudioStatus(QString status) override {
        systemAudioStatuses.append(status);
        return sent();
    }

    AsyncStream<ServerMessage> receiveMessages() override {
        if (auto stream = std::exchange(m_stream, std::nullopt))
            return *std::move(stream);
        return AsyncStream<ServerMessage>::of(EventExecutor::main(), {});
    }

    [[nodiscard]] bool isConnected() const override { return m_isConnected; }
    [[nodiscard]] SessionTexts texts() const override { return currentTexts; }
    void clearAllText() override {
        ++clearedTexts;
        currentTexts = {};
    }
    void markRecoveredTextAsUsed() override { currentTexts.hasRecoveredText = false; }

private:
    static Task<> done() { co_return; }
    static Task<> failing(WebSocketError error) {
        throw error;
        co_return;
    }
    Task<> sent() {
        if (sendError)
            return failing(*sendError);
        return m_isConnected ? done() : failing(WebSocketError(WebSocketError::Code::notConnected));
    }
    void finish() {
        if (m_events)
            m_events.finish();
    }

    bool m_isConnected = false;
    std::optional<AsyncStream<ServerMessage>> m_stream;
    AsyncStream<ServerMessage>::Sink m_events;
};

} // namespace quillo
