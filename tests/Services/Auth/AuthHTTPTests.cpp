#include "Services/Auth/AuthHTTP.h"

#include "Support/Async.h"
#include "Support/ScriptedServer.h"
#include "Support/TestCertificate.h"

#include <QSslCertificate>

using namespace quillo;
using namespace quillo::test;

namespace {

TEST(AuthHTTP, AHandshakeIsTriedOnceMoreWithWhatIsTrustedThen) {
    const TestCertificate certificate;
    ScriptedServer server(certificate.serverConfiguration(), [](const auto&, QSslSocket& connection) {
        ScriptedServer::answer(connection, "200 OK", "{}");
    });
    struct Case {
        int trustedFrom; ///< the attempt at which the authority's file is there
        int attempts;
        int status;
    };
    for (const auto& test : {Case{1, 1, 200}, {2, 2, 200}, {3, 2, 0}}) {
        int attempts = 0;
        server.requests.clear();
        AuthHTTP http([&](QNetworkRequest& request) {
            if (++attempts < test.trustedFrom)
                return;
            auto tls = QSslConfiguration::defaultConfiguration();
            tls.setCaCertificates(QSslCertificate::fromData(certificate.authorityPem()));
            request.setSslConfiguration(tls);
        });
        const auto answer = await(http.send(
            {.method = "POST", .url = server.url(u"https"_qs, u"/auth"_qs), .json = "{}", .accessToken = u"secret"_qs},
            std::chrono::seconds(5)));
        EXPECT_EQ(answer.status, test.status) << test.trustedFrom;
        EXPECT_EQ(answer.isHandshakeFailure, test.status == 0);
        EXPECT_EQ(attempts, test.attempts);
        // An untrusted server receives nothing.
        EXPECT_EQ(server.requests.size(), test.status ? 1 : 0);
        if (!server.requests.isEmpty())
            EXPECT_EQ(server.requests[0].header("Authorization"), "Bearer secret");
    }
}

} // namespace
