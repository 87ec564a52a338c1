// The service against the real server: what one side sends is what the other reads. What a code is worth to an attacker
// is the server's own tests.

#include "Server/Transport/SignInFixture.h"
#include "Services/Auth/AuthFixture.h"

using namespace quillo;
using namespace quillo::test;

namespace {

class SignInServerTest : public AuthFixture {
protected:
    SignInServerTest() {
        // The page is opened at the address itself, so that no name can lead the browser elsewhere.
        const auto address = [this](const char* base) {
            return QUrl(QLatin1String(base) + u":%1"_qs.arg(realServer.port()));
        };
        auto config = this->config();
        config.authBaseURL = address("https://localhost").resolved(QUrl(u"/auth"_qs));
        config.apiBaseURL = address("https://localhost").resolved(QUrl(u"/api/v1"_qs));
        config.browserAuthBaseURL = address("http://127.0.0.1").resolved(QUrl(u"/auth"_qs));
        config.prepareRequest = [this](QNetworkRequest& request) { request.setSslConfiguration(realServer.trust()); };
        m_service = std::make_unique<AuthService>(config, clock);
    }

    /// Signs in, or registers, at the page that was opened; returns how the sign-in ended.
    std::string signIn(bool asNew = false) {
        const Ending ending(asNew ? service().startRegistration() : service().startLogin());
        Fields query;
        for (const auto& [name, value] : QUrlQuery(pages.back()).queryItems(QUrl::FullyDecoded))
            query.emplace_back(name.toUtf8(), value.toUtf8());
        const auto page = Browser(realServer).submit(pages.back().path().toUtf8(), annsForm, query);
        if (const auto code = page.code(); !code.isEmpty())
            service().handleCallback(goodCallback(QString::fromLatin1(code)));
        else
            service().cancelLogin();
        return ending.text();
    }
    [[nodiscard]] std::string token() const { return storage->accessToken()->toStdString(); }

    TestServer realServer;
};

TEST_F(SignInServerTest, AnAccountLivesFromItsRegistrationToItsDeletion) {
    EXPECT_EQ(outcome(service().createAnonymousSession()), "ok");
    const auto anonymous = token();
    const auto device = storage->deviceId();

    EXPECT_EQ(signIn(true), "ok");
    EXPECT_EQ(service().currentUser()->fullName, u"Ann"_qs);
    EXPECT_EQ(service().currentUser()->email, u"ann@example.org"_qs);
    EXPECT_FALSE(service().currentUser()->isAnonymous);
    EXPECT_TRUE(service().isNewUser());
    EXPECT_EQ(statusOfMe(realServer, anonymous), 401) << "the anonymous user became part of the account";
    EXPECT_TRUE(waitUntil([&] { return log.count("Device info synced: ") == 1; }));
    const auto id = service().currentUser()->id;
    const auto first = token();
    EXPECT_EQ(outcome(service().refreshAccessToken()), "ok");
    EXPECT_NE(token(), first);
    EXPECT_EQ(statusOfMe(realServer, token()), 200);
    EXPECT_EQ(outcome(service().applyWebTokens(*storage->accessToken(), *storage->refreshToken())), "ok");

    const auto before = token();
    service().logout();
    EXPECT_EQ(storage->accessToken(), std::nullopt);
    EXPECT_EQ(storage->deviceId(), device);
    EXPECT_EQ(statusOfMe(realServer, before), 200) << "a logout is this machine's alone";
    EXPECT_EQ(signIn(), "ok");
    EXPECT_EQ(service().currentUser()->id, id);
    EXPECT_FALSE(service().isNewUser());

    const auto last = token();
    EXPECT_EQ(outcome(service().deleteAccount()), "ok");
    EXPECT_FALSE(service().isAuthenticated());
    EXPECT_EQ(statusOfMe(realServer, last), 401);
    EXPECT_EQ(signIn(), "cancelled: The sign-in was cancelled") << "the page gives no code";
    for (const auto& secret : {anonymous, first, last, std::string(password)})
        EXPECT_EQ(log.count(secret), 0);
}

} // namespace
