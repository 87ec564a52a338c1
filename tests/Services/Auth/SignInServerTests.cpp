// The service against the real server, with a user at its real pages; only the window of a browser is missing.

#include "Server/Transport/ServerFixture.h"
#include "Services/Auth/AuthFixture.h"
#include "Services/Auth/BrowserVisit.h"

#include <nlohmann/json.hpp>

#include <atomic>

using namespace quillo;
using namespace quillo::test;

namespace {

const QString password = QStringLiteral("a long enough secret");

/// One machine with its own session at the server.
class Client {
public:
    explicit Client(TestServer& server)
        : m_service(
              {.authBaseURL = address(server, u"https"_qs, u"/auth"_qs),
               .apiBaseURL = address(server, u"https"_qs, u"/api/v1"_qs),
               .tokenStorage = storage,
               .prepareRequest = [&server](QNetworkRequest& request) { request.setSslConfiguration(server.trust()); },
               .loadStorage = {},
               .device = DeviceIdentity({.machineIdPath = u"/nonexistent"_qs}),
               .clientVersion = u"1.2"_qs,
               .openBrowser =
                   [this](const QUrl& url) {
                       shown = url;
                       return true;
                   },
               .browserAuthBaseURL = address(server, u"http"_qs, u"/auth"_qs)},
              clock) {}

    AuthService* operator->() { return &m_service; }

    /// Signs in, or registers, at the page that was opened; returns how the sign-in ended.
    std::string signIn(const QString& email, bool asNew = false) {
        const Ending ending(asNew ? m_service.startRegistration() : m_service.startLogin());
        const auto callback = answer(email, asNew);
        EXPECT_EQ(m_service.handleCallback(callback), std::nullopt);
        return ending.text();
    }

    /// What the page answers to the user.
    QUrl answer(const QString& email, bool asNew = false) const {
        BrowserVisit visit(shown);
        EXPECT_EQ(visit.page.status, 200);
        QMap<QString, QString> fields{{u"email"_qs, email}, {u"password"_qs, password}};
        if (asNew)
            fields[u"full_name"_qs] = u"Ada Lovelace"_qs;
        const auto page = visit.submit(fields);
        EXPECT_EQ(page.status, 200) << page.html.toStdString();
        return visit.callback();
    }

    ManualClock clock{EventExecutor::main()};
    std::shared_ptr<InMemoryTokenStorage> storage = std::make_shared<InMemoryTokenStorage>();
    QUrl shown;

private:
    static QUrl address(TestServer& server, const QString& scheme, const QString& path) {
        // Neither end may be led astray by a name: the page is opened at the address itself.
        return QUrl(u"%1://%2:%3%4"_qs.arg(scheme, scheme == u"http" ? u"127.0.0.1"_qs : u"localhost"_qs)
                        .arg(server->port())
                        .arg(path));
    }

    AuthService m_service;
};

class SignInServerTest : public testing::Test {
protected:
    int meStatus(const QString& token) {
        return get(server->port(), "/api/v1/auth/me", "Authorization: Bearer " + token.toLatin1() + "\r\n").status;
    }

    server::ServerOptions options() {
        server::ServerOptions options;
        options.wallClock = [this] { return std::chrono::system_clock::now() + std::chrono::seconds(secondsPassed); };
        return options;
    }

    std::atomic<int> secondsPassed = 0;
    TestServer server{nullptr, options()};
    const QString email = u"ada@example.org"_qs;
};

TEST_F(SignInServerTest, AnAccountLivesFromItsRegistrationToItsDeletion) {
    const LogLines log;
    Client client(server);
    EXPECT_EQ(outcome(client->createAnonymousSession()), "ok");
    const auto anonymous = *client.storage->accessToken();
    const auto device = client.storage->deviceId();

    EXPECT_EQ(client.signIn(email, true), "ok");
    EXPECT_EQ(client->currentUser()->fullName, u"Ada Lovelace"_qs);
    EXPECT_EQ(client->currentUser()->email, email);
    EXPECT_FALSE(client->currentUser()->isAnonymous);
    EXPECT_TRUE(client->isNewUser());
    EXPECT_EQ(meStatus(anonymous), 401) << "the anonymous user became part of the account";
    EXPECT_TRUE(waitUntil([&] { return log.count("Device info synced: ") == 1; }));
    const auto id = client->currentUser()->id;
    auto token = *client.storage->accessToken();
    EXPECT_EQ(outcome(client->refreshAccessToken()), "ok");
    EXPECT_NE(client.storage->accessToken(), token);
    token = *client.storage->accessToken();
    EXPECT_EQ(meStatus(token), 200);

    client->logout();
    EXPECT_EQ(client.storage->accessToken(), std::nullopt);
    EXPECT_EQ(client.storage->deviceId(), device);
    EXPECT_EQ(meStatus(token), 200) << "a logout is this machine's alone";
    EXPECT_EQ(client.signIn(email), "ok");
    EXPECT_EQ(client->currentUser()->id, id);
    EXPECT_FALSE(client->isNewUser());

    Client other(server);
    EXPECT_EQ(outcome(other->applyWebTokens(*client.storage->accessToken(), *client.storage->refreshToken())), "ok");
    EXPECT_EQ(other->currentUser(), client->currentUser());

    token = *client.storage->accessToken();
    EXPECT_EQ(outcome(client->deleteAccount()), "ok");
    EXPECT_FALSE(client->isAuthenticated());
    EXPECT_EQ(meStatus(token), 401);
    const Ending ending(client->startLogin());
    BrowserVisit visit(client.shown);
    EXPECT_EQ(visit.submit({{u"email"_qs, email}, {u"password"_qs, password}}).status, 401);
    EXPECT_TRUE(visit.callback().isEmpty() || visit.callback().toString().contains(u"access_denied")) << "no code";
    for (const auto& secret : {anonymous, token, password})
        EXPECT_EQ(log.count(secret.toStdString()), 0);
}

TEST_F(SignInServerTest, ACodeIsGoodForItsOwnSignInAlone) {
    Client client(server);
    ASSERT_EQ(client.signIn(email, true), "ok");
    const auto session = client.storage->accessToken();
    const auto redeem = [&](const QUrl& callback, const char* verifier) {
        const auto code = QUrlQuery(callback).queryItemValue(u"code"_qs);
        const nlohmann::json body{{"grant_type", "authorization_code"},
                                  {"code", code.toStdString()},
                                  {"code_verifier", verifier},
                                  {"redirect_uri", "quillo://auth/callback"},
                                  {"client_id", "quillo-speech-macos"}};
        return post(server->port(), "/auth/oauth/token", QByteArray::fromStdString(body.dump())).status;
    };
    const std::string refused = "Token exchange failed with status: 400";
    struct Case {
        const char* name;
        std::function<QUrl(const QUrl&)> happens; ///< between the page and the application
        std::string ending;
    };
    const auto unchanged = [](const QUrl& callback) { return callback; };
    for (const auto& test : {
             Case{"nothing", unchanged, "ok"},
             Case{"tampered code",
                  [](const QUrl& callback) { return QUrl(callback.toString().replace(u"code="_qs, u"code=x"_qs)); },
                  refused},
             Case{"another one tried it first",
                  [&](const QUrl& callback) {
                      EXPECT_EQ(redeem(callback, "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"), 400);
                      return callback;
                  },
                  refused},
             Case{"too late",
                  [&](const QUrl& callback) {
                      secondsPassed += 61;
                      return callback;
                  },
                  refused},
             Case{"tampered state",
                  [](const QUrl& callback) { return QUrl(callback.toString().replace(u"state="_qs, u"state=x"_qs)); },
                  "Security validation failed"},
         }) {
        const Ending ending(client->startLogin());
        const auto callback = test.happens(client.answer(email));
        client->handleCallback(callback);
        EXPECT_EQ(ending.text(), test.ending) << test.name;
        EXPECT_EQ(client->handleCallback(callback)->what(), std::string("Security validation failed")) << "once";
    }
    EXPECT_TRUE(client->isAuthenticated());

    // Used again, a code ends what it gave: one of the two was not its owner.
    const Ending ending(client->startLogin());
    const auto callback = client.answer(email);
    client->handleCallback(callback);
    ASSERT_EQ(ending.text(), "ok");
    EXPECT_EQ(meStatus(*client.storage->accessToken()), 200);
    EXPECT_EQ(redeem(callback, "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"), 400);
    EXPECT_EQ(meStatus(*client.storage->accessToken()), 401);
    EXPECT_EQ(meStatus(*session), 200) << "the sign-in before it";
}

TEST_F(SignInServerTest, WhoTurnsBackOnThePageHasNotFailed) {
    Client client(server);
    const Ending ending(client->startLogin());
    const BrowserVisit visit(client.shown);
    ASSERT_FALSE(visit.callback().isEmpty());
    client->handleCallback(visit.callback());
    EXPECT_EQ(ending.text(), "cancelled: The sign-in was cancelled");
    EXPECT_FALSE(client->isAuthenticated());
}

} // namespace
