#include "Services/Mock/MockServices.h"

namespace quillo::mock {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration serverDelay = 60ms;
constexpr int chunksPerWord = 4;

class WebSocketService final : public WebSocketServiceProtocol {
public:
    explicit WebSocketService(Clock& clock) : m_clock(clock) {}

    Task<> connect() override {
        co_await m_clock.sleep(serverDelay);
        auto [stream, sink] = AsyncStream<ServerMessage>::make(EventExecutor::main());
        m_stream.emplace(std::move(stream));
        m_events = sink;
        m_isConnected = true;
        m_events.yield(server::Connected{});
    }

    Task<> disconnect() override {
        m_isConnected = false;
        m_answer.reset();
        if (m_events)
            std::exchange(m_events, {}).finish();
        co_return;
    }

    Task<> startSession(SessionRequest /*request*/) override {
        requireConnection();
        m_texts = {};
        m_chunks = 0;
        m_events.yield(server::SessionStarted{QStringLiteral("mock-session")});
        co_return;
    }

    Task<> sendAudio(AudioChunk /*chunk*/, bool /*hasSpeech*/) override {
        requireConnection();
        if (++m_chunks % chunksPerWord == 0) {
            m_texts.lastPartialText = heard();
            TranscriptionResult result;
            result.text = m_texts.lastPartialText;
            m_events.yield(server::PartialTranscript{result});
        }
        co_return;
    }

    Task<> endSession() override {
        requireConnection();
        m_answer = m_clock.callLater(serverDelay, [this] {
            m_texts.accumulatedText = heard();
            TranscriptionResult result;
            result.text = m_texts.accumulatedText;
            m_events.yield(server::FinalTranscript{result});
            server::SessionEnded ended;
            ended.text = m_texts.accumulatedText;
            m_events.yield(ended);
        });
        co_return;
    }

    Task<> sendSwitchToMeeting(double /*switchTimestamp*/, QStringList /*audioSources*/) override { co_return; }
    Task<> sendSystemAudioStatus(QString /*status*/) override { co_return; }

    AsyncStream<ServerMessage> receiveMessages() override {
        requireConnection();
        auto stream = std::move(*m_stream);
        m_stream.reset();
        return stream;
    }

    [[nodiscard]] bool isConnected() const override { return m_isConnected; }
    [[nodiscard]] SessionTexts texts() const override { return m_texts; }
    void clearAllText() override { m_texts = {}; }
    void markRecoveredTextAsUsed() override {}

private:
    void requireConnection() const {
        if (!m_isConnected)
            throw WebSocketError(WebSocketError::Code::notConnected);
    }

    /// The part of the transcript that has been spoken so far.
    [[nodiscard]] QString heard() const {
        const auto words = transcript().split(u' ');
        return words.mid(0, std::max(1, m_chunks / chunksPerWord)).join(u' ');
    }

    Clock& m_clock;
    std::optional<AsyncStream<ServerMessage>> m_stream;
    AsyncStream<ServerMessage>::Sink m_events;
    bool m_isConnected = false;
    int m_chunks = 0;
    SessionTexts m_texts;
    Clock::TimerHandle m_answer;
};

} // namespace

QString transcript() {
    return QStringLiteral("The quick brown fox jumps over the lazy dog while somebody dictates a sentence that is long "
                          "enough to see how the interface takes it.");
}

std::unique_ptr<WebSocketServiceProtocol> createWebSocketService(Clock& clock) {
    return std::make_unique<WebSocketService>(clock);
}

} // namespace quillo::mock
