#include "Services/Network/TrustedNetwork.h"

#include "Services/Auth/InMemoryTokenStorage.h"
#include "Services/Socket/TranscriptionServer.h"
#include "Services/Socket/WebSocketService.h"
#include "Support/Async.h"
#include "Support/Files.h"
#include "Support/LogLines.h"

#include <gmock/gmock.h>

using namespace quillo;
using namespace quillo::test;

namespace {

/// The text of the failure of a connect over TLS; empty when it succeeded.
std::string connectTo(const TranscriptionServer& server, const std::shared_ptr<TrustedNetwork>& trust) {
    ManualClock clock(EventExecutor::main());
    WebSocketService service({.serverURL = [url = server.url()] { return url; },
                              .staticToken = u"t"_qs,
                              .trust = trust,
                              .clientVersion = u"1"_qs},
                             clock);
    try {
        await(service.connect());
        return {};
    } catch (const WebSocketError& error) {
        return error.what();
    }
}

TEST(TrustedNetwork, AnAuthorityIsTrustedFromTheMomentItsFileIsThere) {
    const LogLines log;
    const QTemporaryDir folder;
    const TestCertificate certificate;
    const TranscriptionServer server(&certificate);
    const auto path = folder.filePath(u"authority.pem"_qs);

    const auto trust = std::make_shared<TrustedNetwork>(path);
    EXPECT_THAT(connectTo(server, trust), testing::HasSubstr("Connection failed: "));
    EXPECT_EQ(server.connections, 0);
    writeFile(path, certificate.authorityPem());
    EXPECT_EQ(connectTo(server, trust), "");
    // A server that made itself a new authority.
    writeFile(path, TestCertificate().authorityPem() + "\n\n");
    EXPECT_NE(connectTo(server, trust), "");

    writeFile(path, certificate.authorityPem());
    EXPECT_EQ(connectTo(server, std::make_shared<TrustedNetwork>(folder.filePath(u"none"_qs), path)), "");
}

TEST(TrustedNetwork, TheLocalAuthorityVouchesForThisMachineAlone) {
    const QTemporaryDir folder;
    const auto path = folder.filePath(u"authority.pem"_qs);
    writeFile(path, TestCertificate().authorityPem());
    const TrustedNetwork trust(path);
    const auto added = [&](const char* url) {
        for (const auto& certificate : trust.configuration(QUrl(QString::fromLatin1(url))).caCertificates())
            if (certificate.subjectInfo(QSslCertificate::CommonName).contains(u"Test authority"_qs))
                return true;
        return false;
    };
    for (const auto* const url :
         {"https://localhost:5180/api", "wss://127.0.0.1/ws", "https://[::1]:1/", "https://app.localhost"})
        EXPECT_TRUE(added(url)) << url;
    for (const auto* const url : {"https://example.org", "https://localhost.example.org",
                                  "https://127.0.0.1.example.org", "https://192.168.0.1", "https://notlocalhost"})
        EXPECT_FALSE(added(url)) << url;
}

TEST(TrustedNetwork, AnAddedAuthorityTakesNothingFromTheSystems) {
    const QTemporaryDir folder;
    const auto path = folder.filePath(u"authority.pem"_qs);
    writeFile(path, TestCertificate().authorityPem());
    const TrustedNetwork trust(folder.filePath(u"none"_qs), path);
    const auto trusted = trust.configuration(QUrl(u"https://example.org"_qs)).caCertificates();
    const auto system = QSslConfiguration::systemCaCertificates();
    EXPECT_EQ(trusted.mid(0, system.size()), system);
    EXPECT_EQ(trusted.size(), system.size() + 1);
}

TEST(TrustedNetwork, AFileWithoutAuthorityIsNamed) {
    const LogLines log;
    const QTemporaryDir folder;
    const auto path = folder.filePath(u"authority.pem"_qs);
    const TrustedNetwork missing(folder.filePath(u"none"_qs), path);
    EXPECT_EQ(log.count(path.toStdString() + " named by QUILLO_CA_FILE does not exist"), 1);
    writeFile(path, "no certificate");
    for (int request = 0; request < 3; ++request)
        EXPECT_TRUE(missing.configuration(QUrl(u"https://example.org"_qs)) ==
                    QSslConfiguration::defaultConfiguration());
    EXPECT_EQ(log.count("No certificate authority could be read from " + path.toStdString()), 1);
}

} // namespace
