// How a connection is made, and every way in which it is not.

#include "WebSocketFixture.h"

using namespace quillo;
using namespace quillo::test;
using testing::HasSubstr;
using testing::Not;

namespace {

using ConnectTest = WebSocketServiceTest;

/// Logged when a second connect begins to wait for the first.
const std::string waiting = "⏳ Connection in progress, waiting...";

TEST_F(ConnectTest, ARejectedUpgradeTellsItsStatus) {
    const std::vector<std::pair<QByteArray, int>> answers{
        {ScriptedServer::http("401 Unauthorized", "{}", "WWW-Authenticate: Bearer\r\n"), 401},
        {ScriptedServer::http("429 Too Many Requests", {}, "Retry-After: 5\r\n"), 429},
        {ScriptedServer::http("302 Found", {}, "Location: ws://localhost/\r\n"), 302},
        {ScriptedServer::http("200 OK", "<html></html>"), 200},
        {"garbage\r\n\r\n", 0},
    };
    for (const auto& [answer, status] : answers) {
        const ScriptedServer server([&answer = answer](const auto&) { return answer; });
        url = server.url(u"ws"_qs);
        const auto running = finish(service().connect());
        EXPECT_EQ(running->error, Code::connectionFailed) << answer.toStdString();
        EXPECT_EQ(running->httpStatus, status) << answer.toStdString();
        // Nothing is stuck: the next one is a new attempt.
        EXPECT_FALSE(service().isConnected());
    }
    EXPECT_THAT(log.text(), HasSubstr("❌ NSError domain=HTTP code=401"));
    EXPECT_THAT(log.text(), HasSubstr("❌ URLError failingURL: ws://localhost:"));
    EXPECT_THAT(log.text(), Not(HasSubstr("secret")));
}

TEST_F(ConnectTest, AFirstMessageOtherThanConnectedFailsTheConnect) {
    for (const auto& greeting : {uR"({"type":"error","data":{"message":"full"}})"_qs, u"hello"_qs}) {
        TranscriptionServer server;
        server.greeting = greeting;
        url = server.url();
        const auto running = finish(service().connect());
        EXPECT_EQ(running->error, Code::connectionFailed);
        EXPECT_THAT(running->text, HasSubstr("Unexpected response type"));
    }
    TranscriptionServer server;
    connected(server);
    EXPECT_TRUE(service().isConnected());
}

TEST_F(ConnectTest, WithoutTokenOrAddressNothingIsSent) {
    TranscriptionServer server;
    url = server.url();
    tokens->setAccessToken(std::nullopt);
    EXPECT_EQ(finish(service().connect())->error, Code::notAuthenticated);
    EXPECT_THAT(log.text(), HasSubstr("🔒 No token provided for WebSocket connection. Forcing re-auth."));
    tokens->setAccessToken(u"t"_qs);
    for (const auto& bad : {QUrl(), QUrl(u"https://localhost/"_qs), QUrl(u"ws:///path"_qs)}) {
        url = bad;
        EXPECT_EQ(finish(service().connect())->error, Code::invalidURL) << bad.toString().toStdString();
    }
    EXPECT_EQ(server.connections, 0);

    stopService();
    url = server.url();
    tokens->setAccessToken(std::nullopt);
    config.allowsMissingToken = true;
    EXPECT_FALSE(finish(service().connect())->error);
    EXPECT_FALSE(server.requestUrl.hasQuery());

    stopService();
    config.staticToken = u"fixed"_qs;
    EXPECT_FALSE(finish(service().connect())->error);
    EXPECT_EQ(server.requestUrl.query(), u"token=fixed");
    EXPECT_THAT(log.text(), HasSubstr("Token provided for connection (from static)"));
}

TEST_F(ConnectTest, AServerThatNeverAnswersEndsAtTheDeadline) {
    ScriptedServer server([](const auto&) { return QByteArray(); });
    url = server.url(u"ws"_qs);
    const auto running = start(service().connect());
    ASSERT_TRUE(waitUntil([&] { return server.requests.size() == 1; }));
    clock.advance(59s);
    EXPECT_FALSE(running->ended);
    clock.advance(1s);
    ASSERT_TRUE(running->wait());
    EXPECT_EQ(running->text, "Connection failed: The request timed out.");
    EXPECT_EQ(running->httpStatus, 0);
}

TEST_F(ConnectTest, ADisconnectOrTheEndCancelsTheConnectAndThoseThatWaitForIt) {
    for (const bool isEnd : {false, true}) {
        ScriptedServer silent([](const auto&) { return QByteArray(); });
        url = silent.url(u"ws"_qs);
        const auto first = start(service().connect());
        const auto second = start(service().connect());
        ASSERT_TRUE(waitUntil([&] { return silent.requests.size() == 1 && log.count(waiting) == 1 + isEnd; }));
        if (isEnd)
            stopService();
        else
            EXPECT_FALSE(finish(service().disconnect())->error);
        ASSERT_TRUE(first->wait());
        EXPECT_EQ(first->error, Code::connectionCancelled);
        clock.advance(100ms);
        ASSERT_TRUE(second->wait());
        EXPECT_EQ(second->error, Code::connectionCancelled);
        EXPECT_EQ(silent.requests.size(), 1);
        // And a connect begins as the first did.
        const TranscriptionServer server;
        const auto events = connected(server);
        stopService();
        EXPECT_TRUE(events.waitForEnd());
        EXPECT_EQ(events.count<server::ConnectionLost>(), 0);
    }
    EXPECT_EQ(log.count("⚠️ Connection cancelled by user (quick tap)"), 1);
}

TEST_F(ConnectTest, ASecondConnectWaitsForTheFirstThirtyChecks) {
    TranscriptionServer server;
    server.greeting.clear();
    url = server.url();
    const auto first = start(service().connect());
    ASSERT_TRUE(waitUntil([&] { return server.connections == 1; }));
    const auto patient = start(service().connect());
    ASSERT_TRUE(waitUntil([&] { return log.count(waiting) == 1; }));
    clock.advance(2900ms);
    EXPECT_FALSE(patient->ended);
    clock.advance(100ms);
    ASSERT_TRUE(patient->wait());
    EXPECT_EQ(patient->error, Code::connectionFailed);

    const auto lucky = start(service().connect());
    ASSERT_TRUE(waitUntil([&] { return log.count(waiting) == 2; }));
    server.send(uR"({"type":"connected"})"_qs);
    ASSERT_TRUE(first->wait());
    clock.advance(100ms);
    ASSERT_TRUE(lucky->wait());
    EXPECT_FALSE(first->error);
    EXPECT_FALSE(lucky->error);
    EXPECT_EQ(server.connections, 1);
    EXPECT_THAT(log.text(), HasSubstr("✅ Connection completed while waiting"));
    EXPECT_FALSE(finish(service().connect())->error);
    EXPECT_THAT(log.text(), HasSubstr("Already connected, skipping"));
}

TEST_F(ConnectTest, ASecondConnectTriesItselfWhenTheFirstFailed) {
    TranscriptionServer server;
    server.greeting.clear();
    url = server.url();
    const auto first = start(service().connect());
    ASSERT_TRUE(waitUntil([&] { return server.connections == 1; }));
    const auto second = start(service().connect());
    ASSERT_TRUE(waitUntil([&] { return log.count(waiting) == 1; }));
    server.greeting = uR"({"type":"connected"})"_qs;
    server.client->abort();
    ASSERT_TRUE(first->wait());
    EXPECT_EQ(first->error, Code::connectionFailed);
    clock.advance(100ms);
    ASSERT_TRUE(second->wait());
    EXPECT_FALSE(second->error);
    EXPECT_EQ(server.connections, 2);
}

} // namespace
