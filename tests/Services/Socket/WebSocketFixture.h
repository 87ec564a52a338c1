#pragma once

#include "Services/Auth/InMemoryTokenStorage.h"
#include "Services/Socket/TranscriptionServer.h"
#include "Services/Socket/WebSocketService.h"
#include "Support/Async.h"
#include "Support/LogLines.h"
#include "Support/ScriptedServer.h"

#include <gmock/gmock.h>

namespace quillo::test {

using namespace std::chrono_literals;
using Code = WebSocketError::Code;

/// A task under way and how it ended.
struct Running {
    bool ended = false;
    std::optional<Code> error;
    int httpStatus = 0;
    std::string text;

    bool wait() const {
        return waitUntil([this] { return ended; });
    }
};

inline std::shared_ptr<Running> start(Task<> task) {
    auto running = std::make_shared<Running>();
    [](Task<> watched, std::shared_ptr<Running> result) -> Task<> {
        try {
            co_await watched;
        } catch (const WebSocketError& error) {
            result->error = error.code();
            result->httpStatus = error.httpStatus();
            result->text = error.what();
        }
        result->ended = true;
    }(std::move(task), running);
    return running;
}

inline std::shared_ptr<Running> finish(Task<> task) {
    auto running = start(std::move(task));
    EXPECT_TRUE(running->wait()) << "the watchdog ended the wait";
    return running;
}

/// Reads a stream to its end.
class Collected {
public:
    explicit Collected(AsyncStream<ServerMessage> stream) {
        [](AsyncStream<ServerMessage> source, std::shared_ptr<Read> read) -> Task<> {
            while (auto message = co_await source.next())
                read->messages.push_back(*std::move(message));
            read->ended = true;
        }(std::move(stream), m_read);
    }
    [[nodiscard]] const std::vector<ServerMessage>& messages() const { return m_read->messages; }
    [[nodiscard]] bool hasEnded() const { return m_read->ended; }
    bool waitForEnd() const {
        return waitUntil([this] { return hasEnded(); });
    }
    bool waitForCount(size_t count) const {
        return waitUntil([this, count] { return messages().size() >= count; });
    }
    template <class Message>
    [[nodiscard]] int count() const {
        return static_cast<int>(std::ranges::count_if(
            messages(), [](const auto& message) { return std::holds_alternative<Message>(message); }));
    }

private:
    struct Read {
        std::vector<ServerMessage> messages;
        bool ended = false;
    };
    std::shared_ptr<Read> m_read = std::make_shared<Read>();
};

class WebSocketServiceTest : public testing::Test {
protected:
    WebSocketServiceTest() {
        tokens->setAccessToken(u"secret+token/%41&x"_qs);
        config = {.serverURL = [this] { return url; }, .tokenStorage = tokens, .clientVersion = u"1.2"_qs};
    }

    WebSocketService& service() {
        if (!m_service)
            m_service = std::make_unique<WebSocketService>(config, clock);
        return *m_service;
    }

    /// Connects to `server` and returns the events of the connection.
    Collected connected(const TranscriptionServer& server) {
        url = server.url();
        EXPECT_FALSE(finish(service().connect())->error);
        return Collected(service().receiveMessages());
    }

    void stopService() { m_service.reset(); }

    LogLines log;
    ManualClock clock{EventExecutor::main()};
    std::shared_ptr<InMemoryTokenStorage> tokens = std::make_shared<InMemoryTokenStorage>();
    QUrl url;
    WebSocketService::Config config;

private:
    std::unique_ptr<WebSocketService> m_service;
};

} // namespace quillo::test
