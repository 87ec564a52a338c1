// The languages of the server in use, as its /health tells.

#include "App/System/ServedLanguages.h"
#include "Support/Async.h"
#include "Support/ScriptedServer.h"

#include <gtest/gtest.h>

using namespace quillo;
using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

TEST(ServedLanguagesTest, AreAskedForUntilTheServerAnswers) {
    QByteArray http;
    ScriptedServer server([&http](const auto&) { return http; });
    auto health = server.url(u"http"_qs);
    health.setPath(u"/health"_qs);
    ManualClock clock(EventExecutor::main());
    TaskRunner tasks([](const QString&, const QString& error) { ADD_FAILURE() << error.toStdString(); });
    ServedLanguages served(health, {}, clock, tasks);
    const auto english = std::optional(QStringList(u"en"_qs));

    // No answer of this kind is one: it asks again without being told.
    served.ask();
    for (const auto& answer : {QByteArray("nonsense\r\n\r\n"), ScriptedServer::http("200 OK", "<html>Log in</html>"),
                               ScriptedServer::http("502 Bad Gateway", "[]")}) {
        http = answer;
        const auto asked = server.requests.size();
        ASSERT_TRUE(waitUntil([&] {
            clock.advance(1s);
            return server.requests.size() > asked;
        }));
        EXPECT_EQ(served.languages(), std::nullopt);
    }
    http = ScriptedServer::http("503 Service Unavailable", R"({"status":"failing","languages":["en",7]})");
    ASSERT_TRUE(waitUntil([&] {
        clock.advance(1s);
        return served.languages() == english;
    }));
    EXPECT_FALSE(served.understands(u"de"_qs));
    EXPECT_TRUE(served.understands(u"auto"_qs));

    // A server that cannot tell is taken to understand everything.
    http = ScriptedServer::http("200 OK", R"({"status":"ok","languages":"en"})");
    served.ask();
    ASSERT_TRUE(waitUntil([&] { return !served.languages(); }));
    EXPECT_TRUE(served.understands(u"de"_qs));
}

} // namespace
