#include "Core/ServerEnvironment.h"

#include <gmock/gmock.h>

using namespace quillo;
using testing::AllOf;
using testing::HasSubstr;

namespace {

TEST(ServerEnvironment, AddressesFollowFromTheHost) {
    struct Case {
        const char* host;
        const char* webSocket;
        bool isLoopback;
    };
    const std::vector<Case> cases{
        {"speech.example.org", "wss://speech.example.org/ws/v3/transcribe", false},
        {"speech.example.org:8443", "wss://speech.example.org:8443/ws/v3/transcribe", false},
        {"192.0.2.7", "wss://192.0.2.7/ws/v3/transcribe", false},
        {"localhost:5180", "ws://localhost:5180/ws/v3/transcribe", true},
        {"127.0.0.1:5180", "ws://127.0.0.1:5180/ws/v3/transcribe", true},
        {"127.8.9.1", "wss://127.8.9.1/ws/v3/transcribe", true},
        {"[::1]:5180", "wss://[::1]:5180/ws/v3/transcribe", true},
        {"[2001:db8::7]", "wss://[2001:db8::7]/ws/v3/transcribe", false},
        // A plain connection by its name, yet another machine's: it gains no trust.
        {"localhost.example.org", "ws://localhost.example.org/ws/v3/transcribe", false},
    };
    for (const auto& [host, webSocket, isLoopback] : cases) {
        const ServerEnvironment environment(QString::fromLatin1(host), true);
        EXPECT_EQ(environment.wsTranscribeURL().toString().toStdString(), webSocket);
        EXPECT_EQ(environment.isLoopback(), isLoopback) << host;
        const auto base = std::string("https://") + host;
        EXPECT_EQ(environment.apiBaseURL().toString().toStdString(), base + "/api/v1");
        EXPECT_EQ(environment.authBaseURL().toString().toStdString(), base + "/auth");
        EXPECT_EQ(environment.webBaseURL().toString().toStdString(), base);
    }
}

TEST(ServerEnvironment, AServerInTheHouseNeedsNoWayOut) {
    const std::pair<const char*, bool> hosts[] = {
        {"192.168.1.5:48650", true}, {"10.1.2.3", true},      {"172.31.0.1", true},      {"172.32.0.1", false},
        {"169.254.3.4", true},       {"[fd00::7]:443", true}, {"[fe80::7]", true},       {"[2001:db8::7]", false},
        {"home:48650", true},        {"speech.lan.", true},   {"Speech.local", true},    {"192.0.2.7", false},
        {"speech.home.arpa", true},  {"a.internal", true},    {"internal.org:1", false}, {"lan.example.org", false},
    };
    for (const auto& [host, isLocal] : hosts)
        EXPECT_EQ(ServerEnvironment(QString::fromLatin1(host), true).isOnLocalNetwork(), isLocal) << host;
    EXPECT_FALSE(ServerEnvironment(u"home"_qs, false).isOnLocalNetwork());
}

TEST(ServerEnvironment, ABadHostIsNamed) {
    QByteArrayList bad = QByteArray("https://example.org|example.org/path|user@example.org|example.org:|example.org:0|"
                                    "example.org:65536|example.org:80x|example.org:+80|2001:db8::7|[2001:db8::7|"
                                    "[example.org]|[::1]8|1.2.3|300.1.1.1|a..b|-a.org|ex ample.org|example.org?x=1|"
                                    "exämple.org")
                             .split('|');
    for (const auto& host : bad << " "
                                << "a\nb") {
        ASSERT_TRUE(qputenv("QUILLO_SERVER_HOST", host));
        EXPECT_THAT([] { ServerEnvironment::fromEnvironment(u"localhost"_qs); },
                    testing::ThrowsMessage<std::invalid_argument>(
                        AllOf(HasSubstr("QUILLO_SERVER_HOST"), HasSubstr("\"" + host.toStdString() + "\""))));
    }
    qputenv("QUILLO_SERVER_HOST", "Example.org:8443");
    const auto custom = ServerEnvironment::fromEnvironment(u"localhost"_qs);
    EXPECT_TRUE(custom.isCustomHost());
    EXPECT_EQ(custom.identity(), u"example.org:8443");
    // Environment files leave an empty one behind.
    for (const bool isEmpty : {true, false}) {
        isEmpty ? qputenv("QUILLO_SERVER_HOST", "") : qunsetenv("QUILLO_SERVER_HOST");
        const auto builtIn = ServerEnvironment::fromEnvironment(u"localhost:5180"_qs);
        EXPECT_FALSE(builtIn.isCustomHost());
        EXPECT_EQ(builtIn.host(), u"localhost:5180");
        EXPECT_EQ(builtIn.identity(), u"local") << "its port is another one at each start";
    }
}

} // namespace
