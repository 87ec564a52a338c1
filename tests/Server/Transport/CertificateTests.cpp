#include "Foundation/Files.h"
#include "ServerFixture.h"
#include "Transport/CertificateAuthority.h"

#include <sys/stat.h>

using namespace quillo::test;
using namespace quillo::server;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::system_clock;

TEST(ServerCertificates, TlsAndPlainShareThePortAndTheAuthorityVouches) {
    TestServer server;
    const auto token = server.token();
    for (const bool encrypted : {true, false, true}) {
        StreamClient client(server.streamUrl(token, encrypted), server.trust());
        client.start();
        EXPECT_EQ(client.finish(1000)["text"], "the quick brown") << encrypted;
    }
    StreamClient distrustful(server.streamUrl(token, true));
    ASSERT_TRUE(distrustful.waitClosed());
    EXPECT_TRUE(distrustful.messages.empty());
}

TEST(ServerCertificates, EveryHostIsCoveredAndKeysArePrivate) {
    const QTemporaryDir folder;
    const std::filesystem::path data = folder.filePath(u"data"_qs).toStdString();
    const auto files = ensureCertificates(data, {"quillo.example", "192.0.2.7"}, Clock::now());
    const auto chain = QSslCertificate::fromPath(QString::fromStdString(files.chain.string()));
    ASSERT_EQ(chain.size(), 2);
    const auto names = chain[0].subjectAlternativeNames();
    EXPECT_TRUE(names.contains(QSsl::DnsEntry, u"localhost"_qs));
    EXPECT_TRUE(names.contains(QSsl::DnsEntry, u"quillo.example"_qs));
    EXPECT_TRUE(names.contains(QSsl::IpAddressEntry, u"192.0.2.7"_qs));
    for (const auto& file : {files.authorityKey, files.key}) {
        struct stat status {};
        ASSERT_EQ(::stat(file.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U) << file;
    }
    struct stat status {};
    ASSERT_EQ(::stat(data.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
}

struct Renewal {
    const char* name;
    std::chrono::hours later;
    std::vector<std::string> hosts;
    bool authorityChanges;
    bool serverChanges;
    std::function<void(const CertificateFiles&)> damage = [](const auto&) {};
};

TEST(ServerCertificates, RenewsWhatCannotBeUsedAndKeepsTheRest) {
    const Renewal cases[] = {
        {"nothing is wrong", 0h, {}, false, false},
        {"months later", 24h * 300, {}, false, false},
        {"about to expire", 24h * 340, {}, false, true},
        {"expired", 24h * 800, {}, false, true},
        {"ten years later", 24h * 3649, {}, true, true},
        {"a new host", 0h, {"new.example"}, false, true},
        {"the key is lost", 0h, {}, false, true, [](const auto& files) { std::filesystem::remove(files.key); }},
        {"the chain is damaged", 0h, {}, false, true, [](const auto& files) { writeFileAtomically(files.chain, "x"); }},
        {"the keys are swapped",
         0h,
         {},
         false,
         true,
         [](const auto& files) { writeFileAtomically(files.key, *readFile(files.authorityKey)); }},
        {"the authority's key is lost",
         0h,
         {},
         true,
         true,
         [](const auto& files) { std::filesystem::remove(files.authorityKey); }},
    };
    for (const auto& test : cases) {
        const QTemporaryDir folder;
        const std::filesystem::path data = folder.filePath(u"data"_qs).toStdString();
        const auto files = ensureCertificates(data, {}, Clock::now());
        EXPECT_TRUE(files.changed);
        const auto authority = readFile(files.authority);
        const auto chain = readFile(files.chain);
        test.damage(files);
        const auto again = ensureCertificates(data, test.hosts, Clock::now() + test.later);
        EXPECT_EQ(again.changed, test.serverChanges || test.authorityChanges) << test.name;
        EXPECT_EQ(readFile(files.authority) != authority, test.authorityChanges) << test.name;
        EXPECT_EQ(readFile(files.chain) != chain, test.serverChanges) << test.name;
        EXPECT_FALSE(ensureCertificates(data, test.hosts, Clock::now() + test.later).changed) << test.name;
    }
}

} // namespace
