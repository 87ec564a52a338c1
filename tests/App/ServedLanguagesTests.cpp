// The languages of the server in use, as its /health tells.

#include "App/System/ServedLanguages.h"
#include "Support/Async.h"
#include "Support/ScriptedTcpServer.h"

#include <gtest/gtest.h>

using namespace quillo;
using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

TEST(ServedLanguagesTest, AreAskedForUntilTheServerAnswers) {
    QByteArray http;
    ScriptedTcpServer server([&http](const auto&) { return http; });
    auto health = server.url(QStringLiteral("http"));
    health.setPath(QStringLiteral("/health"));
    ManualClock clock(EventExecutor::main());
    TaskRunner tasks([](const QString&, const QString& error) { ADD_FAILURE() << error.toStdString(); });
    ServedLanguages served(health, {}, clock, tasks);
    const auto english = std::optional(QStringList(QStringLiteral("en")));

    // No answer of this kind is one: it asks again without being told.
    served.ask();
    for (const auto& answer : {QByteArray("nonsense\r\n\r\n"), ScriptedTcpServer::http("200 OK", "<html>Log in</html>"),
                               ScriptedTcpServer::http("502 Bad Gateway", "[]")}) {
        http = answer;
        const auto asked = server.requests.size();
        ASSERT_TRUE(waitUntil([&] {
            clock.advance(1s);
            return server.requests.size() > asked;
        }));
        EXPECT_EQ(served.languages(), std::nullopt);
    }
    http = ScriptedTcpServer::http("503 Service Unavailable", R"({"status":"failing","languages":["en",7]})");
    ASSERT_TRUE(waitUntil([&] {
        clock.advance(1s);
        return served.languages() == english;
    }));
    EXPECT_FALSE(served.understands(QStringLiteral("de")));
    EXPECT_TRUE(served.understands(QStringLiteral("auto")));

    // A server that cannot tell is taken to understand everything.
    http = ScriptedTcpServer::http("200 OK", R"({"status":"ok","languages":"en"})");
    served.ask();
    ASSERT_TRUE(waitUntil([&] { return !served.languages(); }));
    EXPECT_TRUE(served.understands(QStringLiteral("de")));
}

} // namespace
