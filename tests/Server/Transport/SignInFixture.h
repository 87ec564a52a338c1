#pragma once

#include "ServerFixture.h"

#include <atomic>
#include <utility>
#include <vector>

namespace quillo::test {

using Fields = std::vector<std::pair<QByteArray, QByteArray>>;

/// The values of `changes` in place of those of `fields`; an empty name removes nothing, a null value removes a field.
Fields with(Fields fields, const Fields& changes);
QByteArray formEncode(const Fields& fields);

constexpr const char* verifier = "a-verifier-of-more-than-43-characters-0123456789";

/// The query of an authorization request as the application makes it.
Fields authorization(const QByteArray& challengeOf = verifier);

struct Page {
    int status = 0;
    QByteArray header;
    QByteArray html;

    /// The code in the way back to the application; empty when there is none.
    [[nodiscard]] QByteArray code() const;
    [[nodiscard]] QByteArray headerValue(const QByteArray& name) const;
    /// Every attribute value and text that is not markup, to be looked at for what broke out.
    [[nodiscard]] bool shows(const QByteArray& text) const { return html.contains(text); }
};

/// A browser as far as the pages need one, over TLS: keeps the cookie and the hidden field.
class Browser {
public:
    explicit Browser(const TestServer& server) : m_server(server) {}

    Page open(const QByteArray& path, const Fields& query = authorization());
    /// Opens the page and posts its form.
    Page submit(const QByteArray& path, const Fields& form, const Fields& query = authorization());
    /// Posts without opening it first; `headers` as whole lines.
    Page post(const QByteArray& path, const Fields& query, const QByteArray& body, const QByteArray& headers = {});

    QByteArray cookie;
    QByteArray token;
    QByteArray languages; ///< sent as Accept-Language

private:
    const TestServer& m_server;
};

constexpr const char* password = "some words in a row";
const Fields annsForm = {{"full_name", "Ann"}, {"email", "ann@example.org"}, {"password", password}};

/// Posts JSON over TLS.
HttpAnswer postEncrypted(const TestServer& server, const QByteArray& path, const server::Json& body,
                         const QByteArray& headers = {});

/// The exchange of a code with what `changes` says in place of the right values.
server::Json exchangeOf(const QByteArray& code, const server::Json& changes = server::Json::object());
HttpAnswer redeem(const TestServer& server, const QByteArray& code,
                  const server::Json& changes = server::Json::object(), const QByteArray& headers = {});
/// The access token in an answer that signs in.
std::string accessOf(const HttpAnswer& signedIn);
/// The status of asking who a token belongs to.
int statusOfMe(const TestServer& server, const std::string& accessToken);
QByteArray bearer(const std::string& token);

/// Sends all requests at once over connections made before, and waits for every answer.
std::vector<HttpAnswer> exchangeAtOnce(const TestServer& server, const std::vector<QByteArray>& requests);

/// Options of a server whose clocks are turned by the test.
struct TurnedClocks {
    std::shared_ptr<std::atomic<int64_t>> seconds = std::make_shared<std::atomic<int64_t>>(0);
    [[nodiscard]] server::ServerOptions options() const;
    void turn(std::chrono::seconds time) const { *seconds += time.count(); }
};

} // namespace quillo::test
