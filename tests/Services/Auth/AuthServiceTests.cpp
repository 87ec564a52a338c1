#include "Services/Auth/AuthFixture.h"
#include "Support/Files.h"

#include <QTimer>
#include <QUuid>

#include <array>

using namespace quillo;
using namespace quillo::test;
using testing::HasSubstr;
using testing::Not;

namespace {

using AuthServiceTest = AuthFixture;

TEST_F(AuthServiceTest, ARefreshStoresTheNewTokens) {
    storeSession(0);
    EXPECT_EQ(outcome(service().refreshAccessToken()), "ok");
    EXPECT_TRUE(server.requests[0].head.startsWith("POST /auth/oauth/token HTTP/1.1\r\n"));
    EXPECT_THAT(server.requests[0].head.toLower().toStdString(), HasSubstr("content-type: application/json\r\n"));
    EXPECT_EQ(server.requests[0].body,
              R"({"grant_type":"refresh_token","refresh_token":"old-refresh","client_id":"quillo-speech-macos"})");
    EXPECT_EQ(storage->accessToken(), u"new-access"_qs);
    EXPECT_EQ(storage->refreshToken(), u"new-refresh"_qs);
    EXPECT_EQ(storage->accessTokenExpiresAt(), clock.wallTime().addSecs(3600));
    EXPECT_THAT(log.text(), HasSubstr("Token refreshed successfully"));
    EXPECT_THAT(log.text(), Not(HasSubstr("-access")));
    EXPECT_THAT(log.text(), Not(HasSubstr("-refresh")));
}

TEST_F(AuthServiceTest, ARejectionIsToldFromAFailureOfTheWay) {
    const char* const rejected = "authentication: Not authenticated";
    const char* const failed = "Token refresh failed with status: ";
    const char* const unreadable = "Failed to decode response: ";
    const std::pair<QByteArray, const char*> cases[] = {
        {answerOf("400 Bad Request", R"({"error":"invalid_grant"})"), rejected},
        {refusedToken, rejected},
        {answerOf("403 Forbidden", R"({"error":"invalid_token"})"), rejected},
        {answerOf("400 Bad Request", R"({"error":"invalid_request"})"), failed},
        {ScriptedServer::http("401 Unauthorized", "[1]", "WWW-Authenticate: Basic realm=x\r\n"), failed},
        {answerOf("403 Forbidden", "<html>This firewall does not like you</html>"), failed},
        {answerOf("429 Too Many Requests"), failed},
        {ScriptedServer::http("302 Found", {}, "Location: http://localhost:1/\r\n"), failed},
        {answerOf("500 Oops"), failed},
        {ok("<html>Please log in to the hotel's network</html>"), unreadable},
        {ok(R"({"access_token":"a","refresh_token":"","expires_in":1})"), unreadable},
        {"HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n{\"access", failed},
        {"nonsense\r\n\r\n", failed},
    };
    for (const auto& [response, text] : cases) {
        SCOPED_TRACE(response.toStdString());
        answer = response;
        storeSession(-1);
        EXPECT_THAT(outcome(service().refreshAccessToken()), testing::StartsWith(text));
        const bool isKept = text != rejected;
        EXPECT_EQ(await(service().checkExistingSession()), isKept);
        EXPECT_EQ(service().isAuthenticated(), isKept);
        EXPECT_EQ(service().isSessionExpired(), !isKept) << "that it ended is there to be said";
        EXPECT_EQ(storage->refreshToken(), isKept ? std::optional(u"old-refresh"_qs) : std::nullopt);
    }
    server.close();
    storeSession(-1);
    EXPECT_TRUE(await(service().checkExistingSession())) << "no network";
    EXPECT_THAT(log.text(), HasSubstr("Refresh failed with auth error. Local session cleared."));
    EXPECT_THAT(log.text(), HasSubstr("Refresh failed with non-auth error. Keeping local session for retry."));
}

TEST_F(AuthServiceTest, ConcurrentRefreshesShareOneRequest) {
    for (const bool succeeds : {true, false}) {
        answer.clear();
        server.requests.clear();
        storeSession(0);
        const std::array ends{Ending(service().refreshAccessToken()), Ending(service().refreshAccessToken()),
                              Ending(service().refreshAccessToken())};
        ASSERT_TRUE(waitForRequests(1));
        server.answerAll(succeeds ? ok(tokensJson) : refusedToken);
        for (const auto& end : ends)
            EXPECT_EQ(end.text(), succeeds ? "ok" : "authentication: Not authenticated");
        EXPECT_EQ(server.requests.size(), 1);
    }
}

TEST_F(AuthServiceTest, AServerForAccountsOnlySaysSo) {
    using Code = AuthError::Code;
    const std::pair<QByteArray, Code> cases[] = {
        {R"({"code":"ANONYMOUS_REFUSED","error":"access_denied"})", Code::accountRequired},
        {R"({"code":"OTHER_USER"})", Code::anonymousFailed},
        {"<html>firewall</html>", Code::anonymousFailed},
    };
    for (const auto& [body, code] : cases) {
        answer = ScriptedServer::http("403 Forbidden", body);
        std::optional<Code> found;
        try {
            await(service().createAnonymousSession());
        } catch (const AuthError& error) {
            found = error.code();
        }
        EXPECT_EQ(found, code) << body.data();
    }
}

TEST_F(AuthServiceTest, AHotkeyDuringTheFirstSignInMakesNoSecondUser) {
    answer.clear();
    const std::array ends{Ending(service().createAnonymousSession()), Ending(service().createAnonymousSession())};
    ASSERT_TRUE(waitForRequests(1));
    server.answerAll(ok(anonymousJson));
    for (const auto& end : ends)
        EXPECT_EQ(end.text(), "ok");
    EXPECT_EQ(server.requests.size(), 1);

    // Who asks after a logout must not get the session of before.
    const Ending before(service().createAnonymousSession());
    ASSERT_TRUE(waitForRequests(2));
    service().logout();
    const Ending after(service().createAnonymousSession());
    ASSERT_TRUE(waitForRequests(3));
    server.answerAll(ok(anonymousJson));
    EXPECT_EQ(after.text(), "ok");
    EXPECT_TRUE(waitUntil([&] { return before.isThere(); }));
    EXPECT_TRUE(service().isAuthenticated());
}

TEST_F(AuthServiceTest, AnAnswerThatComesAfterTheLogoutIsNotStored) {
    answer.clear();
    storeSession(0);
    const Ending end(service().refreshAccessToken());
    ASSERT_TRUE(waitForRequests(1));
    service().logout();
    server.answerAll(ok(tokensJson));
    EXPECT_EQ(end.text(), "authentication: Not authenticated");
    EXPECT_EQ(storage->accessToken(), std::nullopt);
}

TEST_F(AuthServiceTest, AStoredSessionIsRestored) {
    EXPECT_FALSE(await(service().checkExistingSession()));
    EXPECT_THAT(log.text(), HasSubstr("No existing access token found"));
    storeSession(60);
    EXPECT_TRUE(await(service().checkExistingSession()));
    EXPECT_EQ(service().currentUser()->email, u"a@example.org"_qs);
    EXPECT_TRUE(server.requests.isEmpty());
    storeSession(0);
    EXPECT_TRUE(await(service().checkExistingSession()));
    EXPECT_EQ(storage->accessToken(), u"new-access"_qs);
    EXPECT_THAT(log.text(), HasSubstr("Session restored via token refresh"));
    storage->setRefreshToken(std::nullopt);
    storage->setAccessTokenExpiresAt(clock.wallTime());
    EXPECT_FALSE(await(service().checkExistingSession()));
    EXPECT_THAT(log.text(), HasSubstr("No refresh token available"));
    EXPECT_EQ(storage->accessToken(), std::nullopt);
}

TEST_F(AuthServiceTest, AnAnonymousSessionKeepsItsDeviceAcrossALogout) {
    answer = ok(anonymousJson);
    int changes = 0;
    const auto connection =
        QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                         [&](const QString& name) { changes += name == notification::authUserDidChange; });
    EXPECT_EQ(outcome(service().createAnonymousSession()), "ok");
    EXPECT_TRUE(service().isAuthenticated());
    EXPECT_TRUE(service().currentUser()->isAnonymous);
    EXPECT_TRUE(service().isNewUser());
    EXPECT_FALSE(service().isLoading());
    EXPECT_EQ(changes, 1);
    const auto device = storage->deviceId();
    ASSERT_TRUE(device);
    EXPECT_EQ(device->at(14), u'7') << "the version of the UUID";
    EXPECT_TRUE(server.requests[0].head.startsWith("POST /api/v1/auth/anonymous HTTP/1.1\r\n"));
    const auto body = server.requests[0].body.toStdString();
    EXPECT_THAT(body, testing::StartsWith(R"({"device_id":")" + device->toStdString() +
                                          R"(","platform":"macos","app_version":"1.2","os_version":")"));
    EXPECT_THAT(body, testing::ContainsRegex(R"("device_fingerprint":"[0-9a-f]{64}"\}$)"));

    service().logout();
    EXPECT_FALSE(service().isAuthenticated());
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(storage->deviceId(), device);
    EXPECT_EQ(outcome(service().createAnonymousSession()), "ok");
    EXPECT_EQ(server.requests[1].body, server.requests[0].body);
    EXPECT_THAT(log.text(), HasSubstr("Using existing device_id: "));
    EXPECT_THAT(log.text(), Not(HasSubstr(device->toStdString())));
    QObject::disconnect(connection);

    answer = answerOf("503 Busy");
    EXPECT_EQ(outcome(service().createAnonymousSession()), "Anonymous authentication failed: status 503");
}

TEST_F(AuthServiceTest, AnAnswerThatTricklesHasAnEnd) {
    storeSession(0);
    requestTimeout = std::chrono::milliseconds(200);
    answer = "HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n{";
    server.stopsReading = true; // the connection stays
    QTimer drip;
    QObject::connect(&drip, &QTimer::timeout, [&] {
        for (auto* const socket : server.findChildren<QSslSocket*>())
            socket->write(" ");
    });
    drip.start(20);
    EXPECT_THAT(outcome(service().refreshAccessToken()), HasSubstr("Token refresh failed with status: "));
    answer = ok(tokensJson);
    server.stopsReading = false;
    EXPECT_EQ(outcome(service().refreshAccessToken()), "ok") << "nobody waits for the one that trickled";
}

TEST_F(AuthServiceTest, AnAccountThatTheServerEndedStaysUntilItIsSignedInToAgain) {
    storeSession(60);
    ASSERT_TRUE(await(service().checkExistingSession()));
    answer = refusedToken;
    EXPECT_EQ(outcome(service().refreshAccessToken()), "authentication: Not authenticated");
    EXPECT_TRUE(service().isSessionExpired());
    EXPECT_EQ(service().currentUser()->id, u"u1"_qs) << "whose settings and history these are";
    service().logout();
    EXPECT_FALSE(service().isSessionExpired());
    storeSession(60, true);
    ASSERT_TRUE(await(service().checkExistingSession()));
    EXPECT_EQ(outcome(service().refreshAccessToken()), "authentication: Not authenticated");
    EXPECT_FALSE(service().isSessionExpired()) << "an anonymous session is simply made again";
}

TEST_F(AuthServiceTest, ADeviceCannotBeComputedByOthersOnTheMachine) {
    const QTemporaryDir folder;
    const auto path = folder.filePath(u"machine-id"_qs);
    const auto identity = [&](const QByteArray& content, const QByteArray& secret = "s", const QString& host = {}) {
        writeFile(path, content);
        return DeviceIdentity({.machineIdPath = path, .homeSecret = secret, .server = host});
    };
    const QByteArray machine = "0123456789abcdef0123456789abcdef\n";
    const auto one = identity(machine);
    const auto id = one.hardwareUUID();
    ASSERT_TRUE(id);
    EXPECT_EQ(QUuid::fromString(*id).version(), 4);
    EXPECT_FALSE(id->contains(u"0123"));
    EXPECT_EQ(identity(machine.trimmed()).hardwareUUID(), id);
    for (const auto& other :
         {identity("1" + machine.mid(1)), identity(machine, "t"), identity(machine, "s", u"b"_qs)}) {
        EXPECT_NE(other.hardwareUUID(), id);
        EXPECT_NE(other.fingerprint(*id), one.fingerprint(*id));
    }
    EXPECT_FALSE(one.fingerprint(*id).contains(id->first(8)));
    for (const auto* const none : {"", "uninitialized\n", "00000000000000000000000000000000", "0123"})
        EXPECT_EQ(identity(none).hardwareUUID(), std::nullopt) << none;
    EXPECT_NE(makeHomeSecret(), makeHomeSecret());
    EXPECT_EQ(makeHomeSecret().size(), 64);

    // One that an earlier version computed from the machine alone serves no longer.
    (void)identity(machine);
    machineIdPath = path;
    const auto computable = u"c157f4be-61eb-4752-841a-508eba57e630"_qs;
    EXPECT_TRUE(one.isComputable(computable));
    EXPECT_FALSE(one.isComputable(*id));
    storage->setDeviceId(computable);
    answer = ok(anonymousJson);
    EXPECT_EQ(outcome(service().createAnonymousSession()), "ok");
    EXPECT_NE(storage->deviceId(), computable);
}

TEST_F(AuthServiceTest, VersionSevenIdsSortByTheirTime) {
    const auto time = QDateTime::fromMSecsSinceEpoch(0x017F22E279B0, Qt::UTC);
    const auto id = makeUUIDVersion7(time);
    EXPECT_TRUE(id.startsWith(u"017f22e2-79b0-7")); // the example of RFC 9562, appendix A.6
    EXPECT_EQ(QUuid::fromString(id).variant(), QUuid::DCE);
    EXPECT_LT(id, makeUUIDVersion7(time.addMSecs(1)));
    EXPECT_NE(id, makeUUIDVersion7(time));
}

} // namespace
