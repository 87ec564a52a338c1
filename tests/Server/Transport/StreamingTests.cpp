#include "Accounts/AccountStore.h"
#include "ServerFixture.h"

using namespace quillo::test;
using namespace quillo::server;
using namespace std::chrono_literals;

namespace {

TEST(ServerStreaming, ASessionFromStartToEndAndAnotherOnTheSameSocket) {
    const TestServer server(R"({"language":"en","events":[{"at":0.1,"partial":"hel"},
        {"at":0.2,"final":"Hello world.","confidence":0.8},{"at":0.25,"final":"Bye.","confidence":0.6}]})");
    StreamClient client(server);
    std::string sessions[2];
    for (std::string& session : sessions) {
        client.start();
        session = client.next("session_started")["session_id"];
        EXPECT_EQ(client.messages.front()["type"], "connected") << "connected comes first";
        client.sendAudio(300);
        client.sendAudio(30);
        client.send(R"({"type":"system_audio_status","status":"active"})");
        client.end();
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

TEST(ServerStreaming, MistakesAreAnsweredAndTheSessionLivesOn) {
    const TestServer server(nullptr, {.maxFrameBytes = size_t{100} * 1024});
    StreamClient client(server);
    client.next("connected");
    client.end();
    EXPECT_EQ(client.nextError(), "NO_SESSION");
    client.start();
    client.next("session_started");

    const std::string deep = "{\"type\":" + std::string(50000, '[');
    const std::string huge = "{\"type\":\"audio_chunk\",\"data\":\"" + std::string(3'000'000, 'A') + "\"}";
    for (const char* frame : {"nonsense", "{}", "null", R"({"type":"audio_chunk","data":"%%%%"})", deep.c_str(),
                              huge.c_str(), R"({"type":"start_session","languages":5})"}) {
        client.send(frame);
        EXPECT_EQ(client.nextError(), "INVALID_MESSAGE") << std::string(frame).substr(0, 60);
    }
    client.socket.sendBinaryMessage("ignored");
    client.send(R"({"type":"of_tomorrow"})");
    client.start();
    EXPECT_EQ(client.nextError(), "SESSION_EXISTS");
    EXPECT_EQ(client.finish(400)["duration_ms"], 400);
}

TEST(ServerStreaming, AudioWithoutASessionIsReportedOnceUntilTheNextStart) {
    const TestServer server;
    StreamClient client(server);
    client.next("connected");
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 20; ++i)
            client.sendAudio(100);
        EXPECT_EQ(client.nextError(), "NO_SESSION");
        client.start();
        client.finish(0);
        EXPECT_EQ(client.count("error"), round + 1);
    }
}

/// Connections that move between threads at every step: what one thread keeps must not leak into another's.
TEST(ServerStreaming, ManySessionsOnSeveralThreadsKeepEverySample) {
    const TestServer server(nullptr, {.threads = 4, .maxSessionsPerUser = 1000});
    const QString token = server.token();
    std::vector<std::unique_ptr<StreamClient>> clients;
    clients.reserve(60);
    for (int i = 0; i < 60; ++i)
        clients.push_back(std::make_unique<StreamClient>(server.streamUrl(token)));
    for (auto& client : clients)
        client->start();
    for (int round = 0; round < 40; ++round) {
        for (auto& client : clients)
            client->sendAudio(100);
        QCoreApplication::processEvents();
    }
    for (auto& client : clients)
        client->end();
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
        const TestServer server(script, {.finishTimeout = 50ms});
        StreamClient client(server);
        client.next("connected");
        for (int round = 0; round < 2; ++round) {
            client.start();
            client.sendAudio(200);
            client.end();
            auto error = client.nextError();
            while (error == "NO_SESSION") // what was on its way when the session failed
                error = client.nextError();
            EXPECT_EQ(error, expected) << script;
        }
        EXPECT_EQ(client.count("session_ended"), 0) << script;
        EXPECT_FALSE(client.closed);
    }
}

TEST(ServerStreaming, AClientAheadOfTheRecogniserIsHeldBackAndLosesNothing) {
    const TestServer server(R"({"speed":40,"words":["a"],"words_per_second":1,"words_per_final":1000})",
                            {.maxBacklogSeconds = 2});
    StreamClient client(server);
    client.start();
    const Json ended = client.finish(40000);
    EXPECT_EQ(ended["duration_ms"], 40000);
    EXPECT_EQ(ended["total_words"], 40);
}

TEST(ServerStreaming, TheUpgradeIsRefusedWithAReason) {
    TestServer server(nullptr, {.maxSessions = 3, .maxSessionsPerUser = 2});
    const auto upgrade = [&](const QString& token) {
        return parseAnswer(exchange(server.port(), upgradeRequest(token)));
    };
    EXPECT_EQ(upgrade(u"wrong"_qs).status, 401);
    EXPECT_EQ(upgrade(QString()).body["code"], "INVALID_TOKEN");
    EXPECT_EQ(get(server.port(), "/ws/v3/transcribe").status, 426);

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
    TestServer server(nullptr, {.idleTimeout = 100ms});
    StreamClient silent(server);
    ASSERT_TRUE(silent.waitClosed());
    EXPECT_EQ(silent.socket.closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
    EXPECT_TRUE(waitUntil([&] { return server->connectionCount() == 0; }));

    const TestServer limited(nullptr, {.maxSessionTime = 100ms});
    StreamClient client(limited);
    client.start();
    client.sendAudio(1000);
    EXPECT_EQ(client.nextError(), "SESSION_LIMIT");
    EXPECT_EQ(client.next("session_ended")["text"], "the quick brown") << "what was said until then is kept";
}

TEST(ServerStreaming, WhoWaitsForTheLastWordHearsThatItIsWorkedOn) {
    const TestServer server(R"({"finish":"never"})", {.finishTimeout = 2s, .finishSign = 100ms});
    StreamClient client(server);
    client.start();
    client.sendAudio(100);
    client.next("session_started");
    EXPECT_EQ(client.count("pong"), 0);
    client.end();
    EXPECT_EQ(client.nextError(), "TRANSCRIPTION_ERROR");
    EXPECT_GE(client.count("pong"), 3);
    EXPECT_LE(client.count("pong"), 20) << "bounded by the time that the end may take";
}

/// Has no place at first.
class BusyRecogniser final : public Recogniser {
public:
    explicit BusyRecogniser(int refusals) : m_refusals(refusals) {}
    [[nodiscard]] std::string name() const override { return "busy"; }
    std::unique_ptr<RecognitionSession> open(const RecognitionOptions& options,
                                             std::shared_ptr<RecognitionListener> listener) override {
        if (m_refusals-- > 0)
            throw RecogniserBusy("no place");
        return m_inner->open(options, std::move(listener));
    }

private:
    std::atomic<int> m_refusals;
    std::shared_ptr<Recogniser> m_inner = makeScriptedRecogniser(Script::defaultScript());
};

TEST(ServerStreaming, AStartWaitsAWhileForABusyRecogniser) {
    const TestServer freed(std::make_shared<BusyRecogniser>(2), {.busyWait = 60s});
    StreamClient patient(freed);
    patient.start();
    EXPECT_EQ(patient.finish(500)["duration_ms"], 500) << "what was said meanwhile is not lost";
    const TestServer full(std::make_shared<BusyRecogniser>(1000), {.busyWait = 100ms});
    StreamClient refused(full);
    refused.start();
    EXPECT_EQ(refused.nextError(), "STT_UNAVAILABLE");
}

class ForeignRecogniser final : public Recogniser {
public:
    [[nodiscard]] std::string name() const override { return "foreign"; }
    std::unique_ptr<RecognitionSession> open(const RecognitionOptions&, std::shared_ptr<RecognitionListener>) override {
        throw LanguageNotServed("English only");
    }
};

TEST(ServerStreaming, ALanguageThatIsNotServedIsNamedAsTheReason) {
    const TestServer server(std::make_shared<ForeignRecogniser>());
    StreamClient client(server);
    for (int round = 0; round < 2; ++round) {
        client.start();
        EXPECT_EQ(client.nextError(), "LANGUAGE_NOT_SERVED") << "it would be kept for a recogniser that returns";
    }
}

TEST(ServerStreaming, AStopLetsADictationComeToItsEndWithinTheDrain) {
    for (const auto drain : {60s, 0s}) {
        TestServer server(nullptr, {.drainTime = drain});
        StreamClient idle(server);
        StreamClient client(server);
        idle.next("connected");
        client.start();
        client.next("session_started");
        // The server answers on its own threads, but the clients need this one to turn.
        std::jthread stopper([&] { server->stop(); });
        if (drain > 0s) {
            EXPECT_EQ(client.nextError(), "SERVER_STOPPING");
            EXPECT_TRUE(idle.waitClosed());
            EXPECT_EQ(client.finish(400)["duration_ms"], 400);
        }
        for (auto* each : {&idle, &client}) {
            EXPECT_TRUE(each->waitClosed());
            EXPECT_EQ(each->socket.closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
        }
        stopper.join();
        EXPECT_EQ(server->connectionCount(), 0U);
    }
}

TEST(ServerStreaming, ASocketEndsWithItsSignIn) {
    TestServer server(nullptr, {.signInCheck = 20ms});
    const QString removed = server.token("removed");
    const QString stolen = server.token("stolen");
    const QString kept = server.token("kept");
    StreamClient clients[] = {StreamClient(server.streamUrl(removed)), StreamClient(server.streamUrl(stolen)),
                              StreamClient(server.streamUrl(kept))};
    for (auto& client : clients)
        client.next("connected");
    exchange(server.port(), requestBytes("DELETE", "/users/me", bearer(removed)));
    // As the administrator's command does it, in another process.
    AccountStore accounts(server.dataFolder() / "accounts.sqlite", std::chrono::system_clock::now);
    accounts.remove(accounts.userOf(stolen.toStdString())->id);
    for (auto* client : {&clients[0], &clients[1]}) {
        EXPECT_TRUE(client->waitClosed());
        EXPECT_EQ(client->socket.closeCode(), QWebSocketProtocol::CloseCodePolicyViolated);
    }
    EXPECT_FALSE(clients[2].closed);
}

} // namespace
