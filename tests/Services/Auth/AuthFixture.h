#pragma once

#include "Core/NotificationCenter.h"
#include "Services/Auth/AuthService.h"
#include "Services/Auth/InMemoryTokenStorage.h"
#include "Support/Async.h"
#include "Support/LogLines.h"
#include "Support/ScriptedServer.h"

#include <QUrlQuery>

#include <gmock/gmock.h>

namespace quillo::test {

/// Whole answers of the account server.
inline QByteArray answerOf(const QByteArray& status, const QByteArray& body = {}) {
    return ScriptedServer::http(status, body);
}
inline QByteArray ok(const QByteArray& body) { return answerOf("200 OK", body); }

inline const QByteArray tokensJson = R"({"access_token":"new-access","refresh_token":"new-refresh","expires_in":3600})";

/// How the account server refuses a refresh token.
inline const QByteArray refusedToken = answerOf("401 Unauthorized", R"({"error":"invalid_grant"})");

inline QByteArray responseJson(const QByteArray& user, bool isNew = true) {
    return R"({"user":)" + user + R"(,"tokens":)" + tokensJson + R"(,"is_new_user":)" + (isNew ? "true}" : "false}");
}

inline const QByteArray anonymousJson = responseJson(R"({"id":"u1","is_anonymous":true})");
inline const QByteArray accountJson =
    responseJson(R"({"id":"a1","email":"ada@example.org","full_name":"Ada","is_anonymous":false})");

/// "ok", or the kind of the AuthError and its text.
inline std::string describe(const std::optional<AuthError>& error) {
    if (!error)
        return "ok";
    const char* const kind = error->isAuthenticationError() ? "authentication: "
                             : error->isCancellation()      ? "cancelled: "
                                                            : "";
    return kind + std::string(error->what());
}

/// Runs a task to its end, now or later, and says how it ended.
class Ending {
public:
    explicit Ending(Task<> task) { run(std::move(task), m_text); }

    [[nodiscard]] bool isThere() const { return m_text->has_value(); }
    [[nodiscard]] std::string text() const {
        return waitUntil([this] { return isThere(); }) ? **m_text : std::string("it never ended");
    }

private:
    using Text = std::shared_ptr<std::optional<std::string>>;
    static Task<> run(Task<> task, Text text) {
        try {
            co_await task;
            *text = describe(std::nullopt);
        } catch (const AuthError& error) {
            *text = describe(error);
        }
    }
    Text m_text = std::make_shared<std::optional<std::string>>();
};

inline std::string outcome(Task<> task) { return Ending(std::move(task)).text(); }

/// The service, an account server that answers as the test says, and a browser that only notes what it is shown.
class AuthFixture : public testing::Test {
protected:
    AuthService& service() {
        if (!m_service)
            m_service = std::make_unique<AuthService>(config(), clock);
        return *m_service;
    }

    AuthService::Config config() {
        return {.authBaseURL = server.url(u"http"_qs).resolved(QUrl(u"/auth"_qs)),
                .apiBaseURL = server.url(u"http"_qs).resolved(QUrl(u"/api/v1"_qs)),
                .tokenStorage = storage,
                .prepareRequest = {},
                .loadStorage = loadStorage,
                .device = DeviceIdentity({.machineIdPath = machineIdPath}),
                .clientVersion = u"1.2"_qs,
                .requestTimeout = requestTimeout,
                .openBrowser =
                    [this](const QUrl& url) {
                        pages << url;
                        return hasBrowser;
                    },
                .browserAuthBaseURL = browserAuthBaseURL};
    }

    void storeSession(int secondsLeft, bool isAnonymous = false) {
        storage->setAccessToken(u"old-access"_qs);
        storage->setRefreshToken(u"old-refresh"_qs);
        storage->setUserData(isAnonymous ? R"({"id":"u1","is_anonymous":true})"
                                         : R"({"id":"u1","email":"a@example.org","is_anonymous":false})");
        storage->setAccessTokenExpiresAt(clock.wallTime().addSecs(secondsLeft));
    }

    /// A query item of the page that the browser was shown last.
    [[nodiscard]] QString shown(const QString& item) const {
        return pages.isEmpty() ? QString() : QUrlQuery(pages.back()).queryItemValue(item, QUrl::FullyDecoded);
    }
    /// What the page answers when the user has signed in.
    [[nodiscard]] QUrl goodCallback(const QString& code = u"the-code"_qs) const {
        return QUrl(u"quillo://auth/callback?code=%1&state=%2"_qs.arg(code, shown(u"state"_qs)));
    }
    /// How often the path was asked for.
    [[nodiscard]] int requestsOf(const QByteArray& path) const {
        return static_cast<int>(std::count_if(server.requests.begin(), server.requests.end(),
                                              [&](const auto& request) { return request.head.contains(path + " "); }));
    }
    [[nodiscard]] int tokenRequests() const { return requestsOf("/oauth/token"); }
    [[nodiscard]] bool waitForRequests(qsizetype count) const {
        return waitUntil([&] { return server.requests.size() == count; });
    }

    LogLines log;
    ManualClock clock{EventExecutor::main()};
    QByteArray answer = ok(tokensJson);
    ScriptedServer::Answer script; ///< instead of the one answer
    ScriptedServer server{[this](const auto& request) { return script ? script(request) : answer; }};
    std::function<Task<>()> loadStorage;
    std::chrono::milliseconds requestTimeout{30000};
    std::shared_ptr<InMemoryTokenStorage> storage = std::make_shared<InMemoryTokenStorage>();
    QString machineIdPath = u"/nonexistent"_qs;
    QList<QUrl> pages;
    bool hasBrowser = true;
    QUrl browserAuthBaseURL;
    std::unique_ptr<AuthService> m_service;
};

} // namespace quillo::test
