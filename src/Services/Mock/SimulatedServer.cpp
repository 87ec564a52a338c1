#include "Services/Mock/MockServices.h"
#include "Services/Mock/MockWebSocketService.h"

namespace quillo::mock {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration serverDelay = 60ms;
constexpr int chunksPerWord = 4;

class SimulatedServer final : public MockWebSocketService {
public:
    explicit SimulatedServer(Clock& clock) : m_clock(clock) { keepsAudio = false; }

    Task<> connect() override {
        co_await m_clock.sleep(serverDelay);
        co_await MockWebSocketService::connect();
    }

    Task<> disconnect() override {
        m_answer.reset();
        return MockWebSocketService::disconnect();
    }

    Task<> startSession(SessionRequest request) override {
        co_await MockWebSocketService::startSession(std::move(request));
        currentTexts = {};
        m_chunks = 0;
        yield(server::SessionStarted{QStringLiteral("mock-session")});
    }

    Task<> sendAudio(AudioChunk chunk, bool hasSpeech) override {
        co_await MockWebSocketService::sendAudio(std::move(chunk), hasSpeech);
        if (++m_chunks % chunksPerWord != 0)
            co_return;
        TranscriptionResult result;
        result.text = currentTexts.lastPartialText = heard();
        yield(server::PartialTranscript{result});
    }

    Task<> endSession() override {
        co_await MockWebSocketService::endSession();
        m_answer = m_clock.callLater(serverDelay, [this] {
            TranscriptionResult result;
            result.text = currentTexts.accumulatedText = heard();
            yield(server::FinalTranscript{result});
            server::SessionEnded ended;
            ended.text = result.text;
            yield(ended);
        });
    }

private:
    /// The part of the transcript that has been spoken so far.
    [[nodiscard]] QString heard() const {
        const auto words = transcript().split(u' ');
        return words.mid(0, std::max(1, m_chunks / chunksPerWord)).join(u' ');
    }

    Clock& m_clock;
    int m_chunks = 0;
    Clock::TimerHandle m_answer;
};

} // namespace

std::unique_ptr<WebSocketServiceProtocol> createWebSocketService(Clock& clock) {
    return std::make_unique<SimulatedServer>(clock);
}

} // namespace quillo::mock
