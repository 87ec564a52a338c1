#include "Accounts/AccountStore.h"
#include "ServerFixture.h"

#include <cmath>

using namespace quillo::test;
using quillo::server::Json;
using quillo::server::ServerOptions;
using namespace std::chrono_literals;

namespace {

std::string code(const Json& error) { return error.value("code", ""); }

TEST(ServerStreaming, ASessionFromStartToEndAndAnotherOnTheSameSocket) {
    const TestServer server(R"({"language":"en","events":[{"at":0.1,"partial":"hel"},
        {"at":0.2,"final":"Hello world.","confidence":0.8},{"at":0.25,"final":"Bye.","confidence":0.6}]})");
    StreamClient client(server);
    client.next("connected");
    ASSERT_EQ(client.messages.size(), 1U) << "connected comes first";
    std::string sessions[2];
    for (std::string& session : sessions) {
        client.start();
        session = client.next("session_started")["session_id"];
        for (int i = 0; i < 3; ++i)
            client.sendAudio(100);
        client.sendAudio(30);
        client.send(R"({"type":"system_audio_status","status":"active"})");
        client.send(R"({"type":"end_session"})");
        EXPECT_EQ(client.next("partial_transcript")["text"], "hel");
        const Json final = client.next("final_transcript");
        EXPECT_EQ(final["text"], "Hello world.");
        EXPECT_EQ(final["word_count"], 2);
        EXPECT_EQ(final["duration_ms"], 200);
        EXPECT_EQ(final["segment_end"], 0.2);
        const Json ended = client.next("session_ended");
        EXPECT_EQ(ended["text"], "Hello world. Bye.");
        EXPECT_EQ(ended["duration_ms"], 330) << "every sample is counted";
        EXPECT_EQ(ended["total_words"], 3);
        EXPECT_EQ(ended["language"], "en");
        EXPECT_EQ(ended["stt_provider"], "scripted");
        EXPECT_NEAR(ended["confidence"].get<double>(), 0.7, 1e-9);
        EXPECT_FALSE(ended["transcription_id"].get<std::string>().empty());
        EXPECT_EQ(client.taken, client.messages.size()) << "session_ended is the last message";
    }
    EXPECT_NE(sessions[0], sessions[1]);
    EXPECT_EQ(client.count("error"), 0);
}

TEST(ServerStreaming, SendsWithoutWaitingAreServedInOrder) {
    const TestServer server;
    StreamClient client(server);
    client.next("connected");
    client.start();
    for (int i = 0; i < 100; ++i)
        client.sendAudio(100);
    client.send(R"({"type":"end_session"})");
    const Json ended = client.next("session_ended");
    EXPECT_EQ(ended["duration_ms"], 10000);
    EXPECT_EQ(ended["total_words"], 30);
}

TEST(ServerStreaming, MistakesAreAnsweredAndTheSessionLivesOn) {
    ServerOptions options;
    options.maxFrameBytes = size_t{100} * 1024;
    const TestServer server(nullptr, options);
    StreamClient client(server);
    client.next("connected");
    client.send(R"({"type":"end_session"})");
    EXPECT_EQ(code(client.next("error")), "NO_SESSION");
    client.start();
    client.next("session_started");

    const std::string deep = "{\"type\":" + std::string(50000, '[');
    const std::string huge = "{\"type\":\"audio_chunk\",\"data\":\"" + std::string(3'000'000, 'A') + "\"}";
    for (const char* frame : {"nonsense", "{}", "null", R"({"type":"audio_chunk","data":"%%%%"})", deep.c_str(),
                              huge.c_str(), R"({"type":"start_session","languages":5})"}) {
        client.send(frame);
        EXPECT_EQ(code(client.next("error")), "INVALID_MESSAGE") << std::string(frame).substr(0, 60);
    }
    client.socket.sendBinaryMessage("ignored");
    client.send(R"({"type":"of_tomorrow"})");
    client.start();
    EXPECT_EQ(code(client.next("error")), "SESSION_EXISTS");
    client.send(R"({"type":"switch_to_meeting","switch_timestamp":1.5,"audio_sources":["microphone","system"]})");
    EXPECT_EQ(code(client.next("error")), "MEETING_DISABLED");
    client.sendAudio(400);
    client.send(R"({"type":"end_session"})");
    EXPECT_EQ(client.next("session_ended")["duration_ms"], 400);
}

TEST(ServerStreaming, AudioWithoutASessionIsReportedOnceUntilTheNextStart) {
    const TestServer server;
    StreamClient client(server);
    client.next("connected");
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 20; ++i)
            client.sendAudio(100);
        EXPECT_EQ(code(client.next("error")), "NO_SESSION");
        client.start();
        client.next("session_started");
        EXPECT_EQ(client.count("error"), round + 1);
        client.send(R"({"type":"end_session"})");
        client.next("session_ended");
    }
}

/// Connections that move between threads at every step: what one thread keeps must not leak into another's.
TEST(ServerStreaming, ManySessionsOnSeveralThreadsKeepEverySample) {
    ServerOptions options;
    options.threads = 4;
    options.maxSessionsPerUser = 1000;
    const TestServer server(nullptr, options);
    const QString token = server.token();
    std::vector<std::unique_ptr<StreamClient>> clients;
    clients.reserve(60);
    for (int i = 0; i < 60; ++i)
        clients.push_back(std::make_unique<StreamClient>(server.streamUrl(token)));
    for (auto& client : clients) {
        client->next("connected");
        client->start();
    }
    for (int round = 0; round < 40; ++round) {
        for (auto& client : clients)
            client->sendAudio(100);
        QCoreApplication::processEvents();
    }
    for (auto& client : clients)
        client->send(R"({"type":"end_session"})");
    for (auto& client : clients)
        EXPECT_EQ(client->next("session_ended")["duration_ms"], 4000);
}

struct RecogniserFailure {
    const char* script;
    const char* code;
};

TEST(ServerStreaming, AFailingRecogniserEndsTheSessionNotTheSocket) {
    const RecogniserFailure cases[] = {
        {R"({"open":"no model"})", "STT_UNAVAILABLE"},
        {R"({"events":[{"at":0.1,"unavailable":"gone"}]})", "STT_UNAVAILABLE"},
        {R"({"events":[{"at":0.1,"fail":"noise"}]})", "TRANSCRIPTION_ERROR"},
        {R"({"finish":"fail"})", "TRANSCRIPTION_ERROR"},
        {R"({"finish":"never"})", "TRANSCRIPTION_ERROR"},
    };
    for (const auto& [script, expected] : cases) {
        ServerOptions options;
        options.finishTimeout = 50ms;
        const TestServer server(script, options);
        StreamClient client(server);
        client.next("connected");
        for (int round = 0; round < 2; ++round) {
            client.start();
            client.sendAudio(200);
            client.send(R"({"type":"end_session"})");
            Json error;
            do {
                error = client.next("error");
            } while (code(error) == "NO_SESSION"); // what was on its way when the session failed
            EXPECT_EQ(code(error), expected) << script;
        }
        EXPECT_EQ(client.count("session_ended"), 0) << script;
        EXPECT_FALSE(client.closed);
    }
}

TEST(ServerStreaming, AClientAheadOfTheRecogniserIsHeldBackAndLosesNothing) {
    ServerOptions options;
    options.maxBacklogSeconds = 2;
    const TestServer server(R"({"speed":40,"words":["a"],"words_per_second":1,"words_per_final":1000})", options);
    StreamClient client(server);
    client.next("connected");
    client.start();
    for (int i = 0; i < 400; ++i)
        client.sendAudio(100);
    client.send(R"({"type":"end_session"})");
    const Json ended = client.next("session_ended");
    EXPECT_EQ(ended["duration_ms"], 40000);
    EXPECT_EQ(ended["total_words"], 40);
}

TEST(ServerStreaming, TheUpgradeIsRefusedWithAReason) {
    ServerOptions options;
    options.maxSessions = 3;
    options.maxSessionsPerUser = 2;
    TestServer server(nullptr, options);
    const auto upgrade = [&](const QString& token) {
        return parseAnswer(
            exchange(server->port(), "GET /ws/v3/transcribe?token=" + token.toUtf8() +
                                         " HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                                         "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: "
                                         "dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n"));
    };
    EXPECT_EQ(upgrade(QStringLiteral("wrong")).status, 401);
    EXPECT_EQ(upgrade(QString()).body["code"], "INVALID_TOKEN");
    EXPECT_EQ(get(server->port(), "/ws/v3/transcribe").status, 426);

    const QString token = server.token();
    const QString other = server.token("other");
    StreamClient first(server.streamUrl(token));
    StreamClient second(server.streamUrl(token));
    first.next("connected");
    second.next("connected");
    EXPECT_EQ(upgrade(token).status, 429);
    auto third = std::make_unique<StreamClient>(server.streamUrl(other));
    third->next("connected");
    const auto full = upgrade(other);
    EXPECT_EQ(full.status, 503);
    EXPECT_TRUE(full.header.contains("Retry-After"));
    third->socket.close();
    ASSERT_TRUE(waitUntil([&] { return server->sessionCount() == 2; }));
    StreamClient again(server.streamUrl(other));
    again.next("connected");
}

TEST(ServerStreaming, TimeoutsEndWhatIsAbandoned) {
    ServerOptions idle;
    idle.idleTimeout = 100ms;
    TestServer server(nullptr, idle);
    StreamClient silent(server);
    ASSERT_TRUE(silent.waitClosed());
    EXPECT_EQ(silent.socket.closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
    EXPECT_TRUE(waitUntil([&] { return server->connectionCount() == 0; }));

    ServerOptions brief;
    brief.maxSessionTime = 100ms;
    const TestServer limited(nullptr, brief);
    StreamClient client(limited);
    client.next("connected");
    client.start();
    client.sendAudio(1000);
    EXPECT_EQ(code(client.next("error")), "SESSION_LIMIT");
    EXPECT_EQ(client.next("session_ended")["text"], "the quick brown") << "what was said until then is kept";
}

TEST(ServerStreaming, WhoWaitsForTheLastWordHearsThatItIsWorkedOn) {
    ServerOptions options;
    options.finishSign = 100ms;
    options.finishTimeout = 2s;
    const TestServer server(R"({"finish":"never"})", options);
    StreamClient client(server);
    client.next("connected");
    client.start();
    client.sendAudio(100);
    client.next("session_started");
    EXPECT_EQ(client.count("pong"), 0);
    client.send(R"({"type":"end_session"})");
    EXPECT_EQ(code(client.next("error")), "TRANSCRIPTION_ERROR");
    EXPECT_GE(client.count("pong"), 3);
    EXPECT_LE(client.count("pong"), 20) << "bounded by the time that the end may take";
}

/// Has no place at first.
class BusyRecogniser final : public quillo::server::Recogniser {
public:
    explicit BusyRecogniser(int refusals) : m_refusals(refusals) {}
    [[nodiscard]] std::string name() const override { return "busy"; }
    std::unique_ptr<quillo::server::RecognitionSession>
    open(const quillo::server::RecognitionOptions& options,
         std::shared_ptr<quillo::server::RecognitionListener> listener) override {
        if (m_refusals-- > 0)
            throw quillo::server::RecogniserBusy("no place");
        return m_inner->open(options, std::move(listener));
    }

private:
    std::atomic<int> m_refusals;
    std::shared_ptr<quillo::server::Recogniser> m_inner =
        quillo::server::makeScriptedRecogniser(quillo::server::Script::defaultScript());
};

TEST(ServerStreaming, AStartWaitsAWhileForABusyRecogniser) {
    ServerOptions options;
    options.busyWait = 60s;
    const TestServer freed(std::make_shared<BusyRecogniser>(2), options);
    StreamClient patient(freed);
    patient.next("connected");
    patient.start();
    patient.sendAudio(500);
    patient.send(R"({"type":"end_session"})");
    EXPECT_EQ(patient.next("session_ended")["duration_ms"], 500) << "what was said meanwhile is not lost";
    options.busyWait = 100ms;
    const TestServer full(std::make_shared<BusyRecogniser>(1000), options);
    StreamClient refused(full);
    refused.next("connected");
    refused.start();
    EXPECT_EQ(code(refused.next("error")), "STT_UNAVAILABLE");
}

TEST(ServerStreaming, AStopLetsADictationComeToItsEnd) {
    ServerOptions options;
    options.drainTime = 60s;
    TestServer server(nullptr, options);
    StreamClient idle(server);
    StreamClient client(server);
    idle.next("connected");
    client.next("connected");
    client.start();
    client.next("session_started");
    std::thread stopper([&] { server->stop(); });
    EXPECT_EQ(code(client.next("error")), "SERVER_STOPPING");
    EXPECT_TRUE(idle.waitClosed());
    client.sendAudio(400);
    client.send(R"({"type":"end_session"})");
    EXPECT_EQ(client.next("session_ended")["duration_ms"], 400);
    EXPECT_TRUE(client.waitClosed());
    EXPECT_EQ(client.socket.closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
    stopper.join();
}

TEST(ServerStreaming, ASocketEndsWithItsSignIn) {
    ServerOptions options;
    options.signInCheck = 20ms;
    TestServer server(nullptr, options);
    const QString removed = server.token("removed");
    const QString stolen = server.token("stolen");
    const QString kept = server.token("kept");
    StreamClient clients[] = {StreamClient(server.streamUrl(removed)), StreamClient(server.streamUrl(stolen)),
                              StreamClient(server.streamUrl(kept))};
    for (auto& client : clients)
        client.next("connected");
    parseAnswer(exchange(server.port(), "DELETE /users/me HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n"
                                        "Authorization: Bearer " +
                                            removed.toLatin1() + "\r\n\r\n"));
    // As the administrator's command does it, in another process.
    quillo::server::AccountStore accounts(server.dataFolder() / "accounts.sqlite", std::chrono::system_clock::now);
    accounts.remove(accounts.userOf(stolen.toStdString())->id);
    for (auto* client : {&clients[0], &clients[1]}) {
        EXPECT_TRUE(client->waitClosed());
        EXPECT_EQ(client->socket.closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
    }
    EXPECT_FALSE(clients[2].closed);
}

TEST(ServerStreaming, StoppingClosesWithGoingAway) {
    TestServer server;
    StreamClient client(server);
    client.next("connected");
    client.start();
    client.next("session_started");
    // The server answers on its own threads, but the close needs this one to turn.
    std::thread stopper([&] { server->stop(); });
    EXPECT_TRUE(client.waitClosed());
    stopper.join();
    EXPECT_EQ(client.socket.closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
    EXPECT_EQ(server->connectionCount(), 0U);
}

} // namespace
