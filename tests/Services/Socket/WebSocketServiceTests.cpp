#include "Services/Protocol/ServerResponse.h"
#include "WebSocketFixture.h"

#include <QCryptographicHash>

using namespace quillo;
using namespace quillo::test;
using testing::HasSubstr;
using testing::Not;

namespace {

TEST_F(WebSocketServiceTest, ADictationFromConnectToDisconnect) {
    TranscriptionServer server;
    const auto events = connected(server);
    EXPECT_TRUE(service().isConnected());
    EXPECT_EQ(server.requestUrl.path(), u"/ws/v3/transcribe");
    EXPECT_EQ(QUrl::fromPercentEncoding(server.requestUrl.query(QUrl::FullyEncoded).toUtf8()),
              u"token=secret+token/%41&x");
    EXPECT_EQ(server.userAgent, "Quillo/1.2 (macOS; Macintosh)");

    EXPECT_FALSE(finish(service().startSession({.languages = {u"en"_qs}}))->error);
    for (int index = 0; index < 200; ++index)
        EXPECT_FALSE(finish(service().sendAudio({.data = QByteArray::number(index)}, true))->error);
    EXPECT_FALSE(finish(service().sendSwitchToMeeting(2.5, {u"system"_qs}))->error);
    EXPECT_FALSE(finish(service().sendSystemAudioStatus(u"on"_qs))->error);
    EXPECT_FALSE(finish(service().endSession())->error);
    ASSERT_TRUE(waitUntil([&] { return server.received.size() == 204; }));
    EXPECT_TRUE(server.received[0].contains(u"start_session"));
    for (int index = 0; index < 200; ++index)
        EXPECT_TRUE(server.received[1 + index].contains(
            u'"' + QString::fromLatin1(QByteArray::number(index).toBase64()) + u'"'));
    EXPECT_TRUE(server.received[203].contains(u"end_session"));

    server.send(uR"({"type":"session_started","data":{"session_id":"s"}})"_qs);
    server.send(uR"({"type":"error","data":{"code":"NO_SESSION"}})"_qs); // ignored: the end is near
    server.send(uR"({"type":"session_ended","data":{"text":"done"}})"_qs);
    ASSERT_TRUE(events.waitForCount(3));
    EXPECT_FALSE(finish(service().disconnect())->error);
    ASSERT_TRUE(events.waitForEnd());
    ASSERT_EQ(events.messages().size(), 3U);
    EXPECT_TRUE(std::holds_alternative<server::Connected>(events.messages()[0]));
    EXPECT_EQ(std::get<server::SessionStarted>(events.messages()[1]).sessionId, u"s");
    EXPECT_EQ(std::get<server::SessionEnded>(events.messages()[2]).text, u"done");
    ASSERT_TRUE(waitUntil([&] { return server.disconnections == 1; }));
    EXPECT_EQ(server.closeCode, QWebSocketProtocol::CloseCodeGoingAway);
    EXPECT_EQ(server.closeReason, u"");
    EXPECT_FALSE(service().isConnected());

    const auto text = log.text();
    for (const auto* const line :
         {"Token provided for connection (from storage)", "transcribe?token=<redacted>", "Starting WebSocket task...",
          "Task resumed, waiting for server response...", "[WebSocketDelegate] ✅ WebSocket opened with protocol: none",
          "📩 Received initial message from server", "✅ Connected successfully!",
          "[WebSocket] Sending start_session: languages=en, mode=streaming, audioSources=nil, commands=0, "
          "enhanced=false",
          "[WebSocket] 🏢 Sent switch_to_meeting at 2.5", "[WebSocket] 📡 Sent system_audio_status: on",
          "[WebSocket] 🛑 Session ended (graceful disconnect started)",
          "ℹ️ Ignoring NO_SESSION during graceful disconnect", "🔌 Disconnected gracefully"})
        EXPECT_THAT(text, HasSubstr(line));
    EXPECT_THAT(text, Not(HasSubstr("secret")));
}

TEST_F(WebSocketServiceTest, WhatArrivesBeforeAnybodyReadsIsNotLost) {
    TranscriptionServer server;
    url = server.url();
    ASSERT_FALSE(finish(service().connect())->error);
    for (int index = 0; index < 50; ++index)
        server.send(uR"({"type":"partial_transcript","data":{"text":"%1"}})"_qs.arg(index));
    ASSERT_TRUE(waitUntil([&] { return service().texts().lastPartialText == u"49"; }));
    const Collected events(service().receiveMessages());
    EXPECT_TRUE(events.waitForCount(51));
    // There is one stream a connection.
    EXPECT_TRUE(Collected(service().receiveMessages()).waitForEnd());
    EXPECT_THAT(log.text(), HasSubstr("[WebSocket] ❌ startReceiving: no webSocket"));
}

TEST_F(WebSocketServiceTest, BadFramesAreDroppedAndTheSessionLivesOn) {
    TranscriptionServer server;
    const auto events = connected(server);
    server.send(u"no json"_qs);
    server.send(u"{\"no\":\"type\"}"_qs);
    server.send(QString(200'000, u'['));
    server.send(QString(ServerResponse::longestFrame + 10, u' '));
    server.client->sendBinaryMessage("\x01\x02");
    for (int twice = 0; twice < 2; ++twice)
        server.send(uR"({"type":"final_transcript","data":{"text":7}})"_qs);
    server.send(uR"({"type":"final_transcript","data":{"text":"alive"}})"_qs);
    ASSERT_TRUE(events.waitForCount(4));
    EXPECT_EQ(std::get<server::FinalTranscript>(events.messages().back()).result.text, u"alive");
    EXPECT_EQ(log.count("[WebSocket] ⚠️ Failed to parse message"), 4);
    EXPECT_EQ(log.count("[WebSocket] 📩 Binary data received (ignored)"), 1);
    EXPECT_EQ(log.count("text: expected string"), 1);
}

TEST_F(WebSocketServiceTest, ALostConnectionIsReportedOnceAndItsTextKept) {
    // How the server goes, unasked.
    const std::vector<std::pair<const char*, std::function<void(QWebSocket&)>>> ends{
        {"abort", [](QWebSocket& client) { client.abort(); }},
        {"going away", [](QWebSocket& client) { client.close(QWebSocketProtocol::CloseCodeGoingAway); }},
        {"normal", [](QWebSocket& client) { client.close(); }},
    };
    for (const auto& [name, end] : ends) {
        TranscriptionServer server;
        const auto events = connected(server);
        server.send(uR"({"type":"final_transcript","data":{"text":"kept"}})"_qs);
        ASSERT_TRUE(events.waitForCount(2)) << name;
        end(*server.client);
        ASSERT_TRUE(events.waitForEnd()) << name;
        EXPECT_EQ(events.count<server::ConnectionLost>(), 1) << name;
        EXPECT_TRUE(std::get<server::ConnectionLost>(events.messages().back())
                        .error.startsWith(u"Failed to receive message: "));
        EXPECT_FALSE(service().isConnected()) << name;
        EXPECT_TRUE(service().texts().hasRecoveredText) << name;
        EXPECT_EQ(service().texts().savedTextFromDisconnect, u"kept") << name;
        EXPECT_EQ(finish(service().sendAudio({.data = "x"}, true))->error, Code::notConnected) << name;
        service().clearAllText();
        EXPECT_EQ(service().texts().bestAvailableText(), u"");
    }
    EXPECT_EQ(log.count("[WebSocket] ⚠️ Unexpected disconnect - text saved for recovery"), 3);
    EXPECT_EQ(log.count("🧹 Cleared recovered text that was: 4 characters"), 3);
}

TEST_F(WebSocketServiceTest, AnEndAfterEndSessionIsQuiet) {
    TranscriptionServer server;
    const auto events = connected(server);
    ASSERT_FALSE(finish(service().endSession())->error);
    server.client->abort();
    ASSERT_TRUE(events.waitForEnd());
    EXPECT_EQ(events.count<server::ConnectionLost>(), 0);
    EXPECT_THAT(log.text(), HasSubstr("[WebSocket] ℹ️ Receive loop ended due to graceful disconnect/cancel"));
}

/// The answer that accepts an upgrade (RFC 6455, section 4.2.2), and the greeting in one text frame.
QByteArray acceptUpgrade(const ScriptedServer::Request& request) {
    const auto start = request.head.indexOf("Sec-WebSocket-Key: ") + 19;
    const auto key = request.head.mid(start, request.head.indexOf('\r', start) - start);
    const auto digest =
        QCryptographicHash::hash(QByteArray(key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11"), QCryptographicHash::Sha1);
    const QByteArray greeting = R"({"type":"connected"})";
    return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
           digest.toBase64() + "\r\n\r\n\x81" + static_cast<char>(greeting.size()) + greeting;
}

TEST_F(WebSocketServiceTest, SendsSuspendWhileTooMuchIsUnsent) {
    config.unsentLimit = 64LL * 1024;
    ScriptedServer server(acceptUpgrade);
    server.stopsReading = true;
    url = server.url(u"ws"_qs);
    const QByteArray chunk(96 * 1024, 'x');
    for (const bool resumes : {true, false}) {
        ASSERT_FALSE(finish(service().connect())->error);
        // More than the kernel holds for both ends of a loopback connection.
        std::vector<std::shared_ptr<Running>> sends;
        for (int index = 0; index < 300; ++index)
            sends.push_back(start(service().sendAudio({.data = chunk}, true)));
        ASSERT_TRUE(waitUntil([&] { return sends.front()->ended; }));
        const auto unsent = [&] { return std::ranges::count_if(sends, [](const auto& send) { return !send->ended; }); };
        EXPECT_GT(unsent(), 50);
        if (resumes)
            server.resumeReading();
        else
            EXPECT_FALSE(finish(service().disconnect())->error);
        ASSERT_TRUE(waitUntil([&] { return unsent() == 0; }));
        EXPECT_EQ(sends.back()->error, resumes ? std::nullopt : std::optional(Code::notConnected));
        EXPECT_FALSE(finish(service().disconnect())->error);
    }
}

TEST_F(WebSocketServiceTest, ASilentConnectionIsLostAfterAnHourAndAnyAfterSixtyFiveMinutes) {
    TranscriptionServer server;
    for (const bool talks : {false, true}) {
        const auto events = connected(server);
        const int lifetime = talks ? 65 : 60;
        for (int minute = 1; minute < lifetime; ++minute) {
            if (talks) {
                server.send(uR"({"type":"pong"})"_qs);
                ASSERT_TRUE(waitUntil([&] { return events.count<server::Pong>() == minute; }));
            }
            clock.advance(60s);
            ASSERT_TRUE(service().isConnected()) << minute;
        }
        EXPECT_FALSE(events.hasEnded());
        clock.advance(60s);
        ASSERT_TRUE(events.waitForEnd()) << talks;
        EXPECT_EQ(events.count<server::ConnectionLost>(), 1);
    }
}

TEST_F(WebSocketServiceTest, WhoStopsReadingEndsTheLoopNotTheConnection) {
    TranscriptionServer server;
    url = server.url();
    ASSERT_FALSE(finish(service().connect())->error);
    service().receiveMessages().cancel();
    server.send(uR"({"type":"final_transcript","data":{"text":"unread"}})"_qs);
    server.client->close();
    ASSERT_TRUE(waitUntil([&] { return !service().isConnected(); }));
    EXPECT_FALSE(service().texts().hasRecoveredText);
}

} // namespace
