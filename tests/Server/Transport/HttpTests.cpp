#include "ServerFixture.h"
#include "Transport/PeerUser.h"

#include <QNetworkInterface>
#include <QTcpSocket>

#include <unistd.h>

using namespace quillo::test;
using quillo::server::Json;
using quillo::server::ServerOptions;

namespace {

TEST(ServerHttp, SignsInRefreshesAndTellsTheUser) {
    TestServer server;
    const auto signedIn = post(server.port(), "/auth/anonymous", R"({"device_id":"d","platform":"macos"})");
    ASSERT_EQ(signedIn.status, 200);
    EXPECT_EQ(signedIn.body["is_new_user"], true);
    EXPECT_EQ(signedIn.body["user"]["is_anonymous"], true);
    EXPECT_EQ(signedIn.body["tokens"]["expires_in"], 3600);
    const Json refresh{{"grant_type", "refresh_token"},
                       {"refresh_token", signedIn.body["tokens"]["refresh_token"]},
                       {"client_id", "quillo-speech-macos"}};
    for (const char* path : {"/oauth/token", "/auth/oauth/token"}) {
        const auto refreshed = post(server.port(), path, QByteArray::fromStdString(refresh.dump()));
        ASSERT_EQ(refreshed.status, 200) << path;
        EXPECT_EQ(refreshed.body["user"], signedIn.body["user"]);
        const auto access = QString::fromStdString(refreshed.body["tokens"]["access_token"]);
        EXPECT_EQ(get(server.port(), "/auth/me", bearer(access)).body, signedIn.body["user"]);
    }
    EXPECT_EQ(get(server.port(), "/auth/me").status, 401);
}

struct BadRequest {
    QByteArray bytes;
    int status;
};

TEST(ServerHttp, AnswersBadRequestsWithTheirStatusAndAReason) {
    TestServer server;
    const auto signIn = [](const QByteArray& body, const QByteArray& type = "application/json") {
        return requestBytes("POST", "/auth/anonymous", "Content-Type: " + type + "\r\n", body);
    };
    const QByteArray toSignIn =
        "POST /auth/anonymous HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n";
    const QByteArray chunk = "10000\r\n" + QByteArray(0x10000, ' ') + "\r\n";
    const BadRequest cases[] = {
        {"nonsense\r\n\r\n", 400},
        {"GET /nothing HTTP/1.1\r\nHost: localhost\r\n\r\n", 404},
        {"DELETE /health HTTP/1.1\r\nHost: localhost\r\n\r\n", 405},
        {toSignIn + "Content-Length: 999999\r\n\r\n", 413},
        {toSignIn + "Transfer-Encoding: chunked\r\n\r\n" + chunk + chunk + "0\r\n\r\n", 413},
        {signIn("{}", "text/plain"), 415},
        {signIn("{}"), 400},
        {signIn("[1]", "application/json; charset=utf-8"), 400},
        {signIn(R"({"device_id":1})"), 400},
        {requestBytes("POST", "/oauth/token", "Content-Type: application/json\r\n",
                      R"({"grant_type":"refresh_token","refresh_token":"x"})"),
         401},
        {"GET /health HTTP/1.1\r\nX: " + QByteArray(40000, 'x') + "\r\n\r\n", 431},
    };
    for (const auto& [bytes, status] : cases) {
        const auto answer = parseAnswer(exchange(server.port(), bytes));
        EXPECT_EQ(answer.status, status) << bytes.left(100).data();
        for (const char* key : {"detail", "error", "code"})
            EXPECT_TRUE(answer.body.contains(key)) << key << " of " << status;
    }
}

TEST(ServerHttp, KeepsAConnectionAndReadsPipelinedRequests) {
    TestServer server;
    const auto answer = exchange(server.port(), "GET /health HTTP/1.1\r\nHost: localhost\r\n\r\n"
                                                "GET /health HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(answer.count("HTTP/1.1 200"), 2) << answer.data();
}

TEST(ServerHttp, BoundsSignInsAndConnectionsOfAnAddress) {
    TestServer server(nullptr, {.maxConnectionsPerAddress = 2, .maxAnonymousPerHour = 2});
    for (const int status : {200, 200, 429}) {
        const auto answer = post(server.port(), "/auth/anonymous", R"({"device_id":"d"})");
        EXPECT_EQ(answer.status, status);
        EXPECT_EQ(answer.header.contains("Retry-After: "), status == 429);
        ASSERT_TRUE(waitUntil([&] { return server->connectionCount() == 0; }));
    }
    QTcpSocket held[2];
    for (auto& socket : held)
        socket.connectToHost(u"127.0.0.1"_qs, server.port());
    ASSERT_TRUE(waitUntil([&] { return server->connectionCount() == 2; }));
    EXPECT_EQ(get(server.port(), "/health").status, 429);
    for (auto& socket : held)
        socket.abort();
    ASSERT_TRUE(waitUntil([&] { return server->connectionCount() == 0; }));
    EXPECT_EQ(get(server.port(), "/health").status, 200);
}

struct Visitor {
    const char* headers; ///< of the proxy
    int signIn;          ///< status
};

TEST(ServerHttp, ATrustedProxyNamesItsClients) {
    TestServer server(nullptr, {.trustedProxies = {"127.0.0.1", "10.0.0.2"},
                                .strictTransportSecurity = true,
                                .maxConnectionsPerAddress = 1,
                                .maxAnonymousPerHour = 1});
    QTcpSocket other; // of the same proxy
    other.connectToHost(u"127.0.0.1"_qs, server.port());
    ASSERT_TRUE(waitUntil([&] { return server->connectionCount() == 1; }));
    const Visitor visitors[] = {
        {"X-Forwarded-For: 192.0.2.1\r\nX-Forwarded-Proto: https\r\nHost: dictation.example\r\n", 200},
        {"X-Forwarded-For: 192.0.2.1\r\nX-Forwarded-Proto: https\r\nHost: dictation.example\r\n", 429},
        // What the client itself claims stands further left, and may come in a header of its own.
        {"X-Forwarded-For: 192.0.2.9, 192.0.2.1, 10.0.0.2\r\nX-Forwarded-Proto: https\r\nHost: d\r\n", 429},
        {"X-Forwarded-For: 192.0.2.9\r\nX-Forwarded-For: 192.0.2.1\r\nX-Forwarded-Proto: https\r\nHost: d\r\n", 429},
        {"X-Forwarded-For: 2001:db8::1\r\nX-Forwarded-Proto: https\r\nHost: d\r\n", 200},
        {"X-Forwarded-For: 2001:db8::2\r\nX-Forwarded-Proto: https\r\nHost: d\r\n", 429},
        {"X-Forwarded-For: 192.0.2.3\r\nX-Forwarded-Proto: http\r\nHost: d\r\n", 403},
        {"X-Forwarded-For: 192.0.2.3\r\nHost: d\r\n", 403},
        {"Host: localhost\r\n", 200},
    };
    for (const auto& [headers, status] : visitors) {
        const auto answer = parseAnswer(
            exchange(server.port(), QByteArray("POST /auth/anonymous HTTP/1.1\r\nConnection: close\r\n") + headers +
                                        "Content-Type: application/json\r\nContent-Length: 17\r\n\r\n"
                                        "{\"device_id\":\"d\"}"));
        EXPECT_EQ(answer.status, status) << headers;
        EXPECT_EQ(answer.header.contains("Strict-Transport-Security"), QByteArray(headers).contains("https"));
    }
}

TEST(ServerHttp, CannotTellWhoAsksWithoutTheKernelsTables) {
    using namespace quillo::server;
    const Tcp::endpoint here(asio::ip::address_v4::loopback(), 1);
    EXPECT_EQ(ownerOfPeer(here, here, ::geteuid(), "/nonexistent"), PeerOwner::unknown);
    EXPECT_EQ(ownerOfPeer(here, here, ::geteuid()), PeerOwner::other) << "there is no such connection";
}

TEST(ServerHttp, ServesOnlyWhomItIsToldToServe) {
    TestServer own(nullptr, {.onlyUser = ::geteuid()});
    EXPECT_EQ(get(own->port(), "/health").status, 200);
    // The same program over a socket of the newer family, whose addresses are in the other table.
    QTcpSocket mapped;
    mapped.connectToHost(QHostAddress(u"::ffff:127.0.0.1"_qs), own->port());
    mapped.write("GET /health HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    ASSERT_TRUE(waitUntil([&] { return isComplete(mapped.peek(10000)); }));
    EXPECT_EQ(parseAnswer(mapped.readAll()).status, 200);
    TestServer foreign(nullptr, {.onlyUser = ::geteuid() + 1});
    EXPECT_EQ(get(foreign->port(), "/health").body["code"], "OTHER_USER");

    TestServer server(nullptr, {.openRegistration = false, .servesAnonymous = false});
    EXPECT_EQ(post(server.port(), "/auth/anonymous", R"({"device_id":"d"})").body["code"], "ANONYMOUS_REFUSED");
    EXPECT_EQ(get(server.port(), "/auth/register").status, 403);
    // Under another site's name this machine is reached by that site's pages.
    for (const char* path : {"/health", "/auth/anonymous", "/ws/v3/transcribe?token=x"})
        EXPECT_EQ(
            parseAnswer(exchange(server.port(), QByteArray("GET ") + path + " HTTP/1.1\r\nHost: evil.example\r\n\r\n"))
                .status,
            421)
            << path;
}

TEST(ServerHttp, TellsWhetherItWorks) {
    TestServer works;
    const auto healthy = get(works->port(), "/health");
    EXPECT_EQ(healthy.status, 200);
    EXPECT_EQ(healthy.body["status"], "ok");
    TestServer deaf(R"({"open":"no model"})");
    const auto failing = get(deaf->port(), "/health");
    EXPECT_EQ(failing.status, 503);
    EXPECT_EQ(failing.body["status"], "failing");
    EXPECT_EQ(failing.body["recogniser"], "unavailable");
    EXPECT_EQ(failing.body["database"], "ok");
}

TEST(ServerHttp, SendsNoTokenInTheClearToAnotherMachine) {
    QString address;
    for (const auto& candidate : QNetworkInterface::allAddresses()) {
        if (!candidate.isLoopback() && candidate.protocol() == QAbstractSocket::IPv4Protocol)
            address = candidate.toString();
    }
    if (address.isEmpty())
        GTEST_SKIP() << "this machine has no address but loopback";
    TestServer server(nullptr, {.listen = "0.0.0.0:0"});
    const auto ask = [&](const QByteArray& bytes) {
        QTcpSocket socket;
        socket.connectToHost(address, server.port());
        socket.write(bytes);
        EXPECT_TRUE(waitUntil([&] { return socket.state() == QAbstractSocket::UnconnectedState; }));
        return parseAnswer(socket.readAll());
    };
    const auto refused = ask(
        "POST /auth/anonymous HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Type: application/json\r\n"
        "Content-Length: 17\r\n\r\n{\"device_id\":\"d\"}");
    EXPECT_EQ(refused.status, 403);
    EXPECT_EQ(refused.body["code"], "TLS_REQUIRED");
    EXPECT_EQ(ask("GET /health HTTP/1.1\r\nHost: any.example\r\nConnection: close\r\n\r\n").status, 200);
}

} // namespace
