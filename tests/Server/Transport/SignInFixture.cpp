#include "SignInFixture.h"

#include <QCryptographicHash>
#include <QRegularExpression>

namespace quillo::test {

using server::Json;

Fields with(Fields fields, const Fields& changes) {
    for (const auto& [name, value] : changes) {
        const auto found = std::find_if(fields.begin(), fields.end(),
                                        [&name = name](const auto& field) { return field.first == name; });
        if (found == fields.end())
            fields.emplace_back(name, value);
        else if (value.isNull())
            fields.erase(found);
        else
            found->second = value;
    }
    return fields;
}

QByteArray formEncode(const Fields& fields) {
    QByteArray text;
    for (const auto& [name, value] : fields)
        text += (text.isEmpty() ? "" : "&") + name.toPercentEncoding() + '=' + value.toPercentEncoding();
    return text;
}

Fields authorization(const QByteArray& challengeOf) {
    return {{"client_id", "quillo-speech-macos"},
            {"redirect_uri", "quillo://auth/callback"},
            {"response_type", "code"},
            {"code_challenge", QCryptographicHash::hash(challengeOf, QCryptographicHash::Sha256)
                                   .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals)},
            {"code_challenge_method", "S256"},
            {"state", "a state"}};
}

QByteArray Page::code() const {
    static const QRegularExpression pattern(u"quillo://auth/callback\\?code=([A-Za-z0-9_-]+)&amp;"_qs);
    return pattern.match(QString::fromUtf8(html)).captured(1).toLatin1();
}

QByteArray Page::headerValue(const QByteArray& name) const {
    const auto at = header.indexOf("\r\n" + name + ": ");
    return at < 0 ? QByteArray()
                  : header.mid(at + name.size() + 4, header.indexOf('\r', at + 2) - at - name.size() - 4);
}

namespace {

Page parsePage(const QByteArray& bytes) {
    const auto split = bytes.indexOf("\r\n\r\n");
    return {bytes.mid(9, 3).toInt(), bytes.left(split + 2), split < 0 ? QByteArray() : bytes.mid(split + 4)};
}

} // namespace

Page Browser::open(const QByteArray& path, const Fields& query) {
    const auto page = parsePage(m_server.exchangeEncrypted(requestBytes(
        "GET", path + '?' + formEncode(query), "Accept-Language: " + languages + "\r\nCookie: " + cookie + "\r\n")));
    if (const auto set = page.headerValue("Set-Cookie"); !set.isEmpty())
        cookie = set.left(set.indexOf(';'));
    static const QRegularExpression pattern(u"name=\"form_token\" value=\"([^\"]+)\""_qs);
    token = pattern.match(QString::fromUtf8(page.html)).captured(1).toLatin1();
    return page;
}

Page Browser::submit(const QByteArray& path, const Fields& form, const Fields& query) {
    open(path, query);
    return post(path, query, formEncode(with(form, {{"form_token", token}})));
}

Page Browser::post(const QByteArray& path, const Fields& query, const QByteArray& body, const QByteArray& headers) {
    return parsePage(
        m_server.exchangeEncrypted(requestBytes("POST", path + '?' + formEncode(query),
                                                headers + "Accept-Language: " + languages + "\r\nCookie: " + cookie +
                                                    "\r\nContent-Type: application/x-www-form-urlencoded\r\n",
                                                body)));
}

HttpAnswer postEncrypted(const TestServer& server, const QByteArray& path, const Json& body,
                         const QByteArray& headers) {
    return parseAnswer(server.exchangeEncrypted(requestBytes(
        "POST", path, headers + "Content-Type: application/json\r\n", QByteArray::fromStdString(body.dump()))));
}

Json exchangeOf(const QByteArray& code, const Json& changes) {
    Json body{{"grant_type", "authorization_code"},
              {"code", code.toStdString()},
              {"code_verifier", verifier},
              {"redirect_uri", "quillo://auth/callback"},
              {"client_id", "quillo-speech-macos"}};
    body.update(changes);
    return body;
}

HttpAnswer redeem(const TestServer& server, const QByteArray& code, const Json& changes, const QByteArray& headers) {
    return postEncrypted(server, "/auth/oauth/token", exchangeOf(code, changes), headers);
}

std::string accessOf(const HttpAnswer& signedIn) { return signedIn.body["tokens"]["access_token"]; }

QByteArray bearer(const std::string& token) { return bearer(QString::fromStdString(token)); }

int statusOfMe(const TestServer& server, const std::string& accessToken) {
    return parseAnswer(server.exchangeEncrypted(requestBytes("GET", "/api/v1/auth/me", bearer(accessToken)))).status;
}

std::vector<HttpAnswer> exchangeAtOnce(const TestServer& server, const std::vector<QByteArray>& requests) {
    std::vector<std::unique_ptr<QSslSocket>> sockets;
    for (size_t i = 0; i < requests.size(); ++i) {
        sockets.push_back(std::make_unique<QSslSocket>());
        sockets.back()->setSslConfiguration(server.trust());
        sockets.back()->connectToHostEncrypted(u"localhost"_qs, server.port());
    }
    const auto all = [&](const auto& holds) {
        // Passwords of all of them may have to be hashed.
        return waitUntil([&] { return std::all_of(sockets.begin(), sockets.end(), holds); }, std::chrono::seconds(90));
    };
    EXPECT_TRUE(all([](const auto& socket) { return socket->isEncrypted(); }));
    for (size_t i = 0; i < requests.size(); ++i)
        sockets[i]->write(requests[i]);
    for (const auto& socket : sockets)
        socket->flush();
    EXPECT_TRUE(all([](const auto& socket) { return isComplete(socket->peek(socket->bytesAvailable())); }));
    std::vector<HttpAnswer> answers;
    for (const auto& socket : sockets)
        answers.push_back(parseAnswer(socket->readAll()));
    return answers;
}

server::ServerOptions TurnedClocks::options() const {
    server::ServerOptions options;
    const auto turned = [seconds = seconds] { return std::chrono::seconds(seconds->load()); };
    options.wallClock = [turned, begin = std::chrono::system_clock::now()] { return begin + turned(); };
    options.steadyClock = [turned, begin = std::chrono::steady_clock::now()] { return begin + turned(); };
    options.maxRegistrationsPerHour = 1000;
    return options;
}

} // namespace quillo::test
