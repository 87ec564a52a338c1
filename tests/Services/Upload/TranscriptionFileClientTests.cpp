#include "Services/Upload/TranscriptionFileClient.h"

#include "Services/Auth/InMemoryTokenStorage.h"
#include "Services/Mock/MockAuthService.h"
#include "Services/Network/TrustedNetwork.h"
#include "Services/Recordings/PCMFiles.h"
#include "Services/Recordings/RecordingsFolder.h"
#include "Support/Async.h"
#include "Support/LogLines.h"
#include "Support/ScriptedHttpsServer.h"
#include "Support/TestCertificate.h"

#include <QTimer>

#include <gmock/gmock.h>

namespace quillo::test {
namespace {

using Kind = TranscriptionFileClientError::Kind;
using Server = ScriptedHttpsServer;
using namespace std::chrono_literals;

const QString audioId = QStringLiteral("5f7c1c1e-0000-4000-8000-000000000001");

class TranscriptionFileClientTest : public testing::Test {
protected:
    TranscriptionFileClientTest() {
        m_tokens->setAccessToken(QStringLiteral("token-1"));
        m_auth.onRefresh = [this] { m_tokens->setAccessToken(QStringLiteral("token-2")); };
        QFile authority(m_folder.outside(QStringLiteral("authority.pem")));
        EXPECT_TRUE(authority.open(QIODevice::WriteOnly) && authority.write(m_certificate.authorityPem()) > 0);
        m_folder.add(RecordingsFolder::metadata(audioId, QDateTime::currentDateTimeUtc()), pcmOf({1, 2, 3, 4}));
    }

    std::unique_ptr<TranscriptionFileClient> makeClient() {
        return std::make_unique<TranscriptionFileClient>(
            TranscriptionFileClient::Config{
                .apiBaseURL = m_server.url(QStringLiteral("/api/v1")),
                .tokenStorage = m_tokens,
                .prepareRequest = [this](QNetworkRequest& request) { m_trust->prepare(request); },
            },
            m_auth, m_clock);
    }

    Task<TranscriptionFileResponse> transcribe() {
        return m_client->retranscribeRecord(audioId, QStringLiteral("de"), transcriptionPurpose::pending,
                                            QStringLiteral("client-1"));
    }

    /// The error that a call ends with; a failure of the test when there is none.
    template <class T>
    static TranscriptionFileClientError errorOf(Task<T> task) {
        try {
            await(std::move(task));
        } catch (const TranscriptionFileClientError& error) {
            return error;
        }
        ADD_FAILURE() << "no error";
        return TranscriptionFileClientError(Kind::invalidURL);
    }

    void answer(const QByteArray& status, const QByteArray& body, const QByteArray& headers = {}) {
        m_script = [=](const Server::Request&, QSslSocket& connection) {
            Server::answer(connection, status, body, headers);
        };
    }

    void expectNoLeftovers() const {
        EXPECT_EQ(m_folder.names(), QStringList({audioId + QStringLiteral(".json"), audioId + QStringLiteral(".pcm")}));
    }

    RecordingsFolder m_folder;
    TestCertificate m_certificate;
    ManualClock m_clock{EventExecutor::main()};
    MockAuthService m_auth;
    std::shared_ptr<InMemoryTokenStorage> m_tokens = std::make_shared<InMemoryTokenStorage>();
    std::shared_ptr<TrustedNetwork> m_trust =
        std::make_shared<TrustedNetwork>(m_folder.outside(QStringLiteral("authority.pem")));
    Server::Script m_script;
    Server m_server{m_certificate.serverConfiguration(),
                    [this](const Server::Request& request, QSslSocket& connection) { m_script(request, connection); }};
    std::unique_ptr<TranscriptionFileClient> m_client = makeClient();
};

TEST_F(TranscriptionFileClientTest, SendsTheFormThatTheServerReads) {
    answer("200 OK", R"({"text":"hallo","language_detected":"de","duration_ms":1200.0,"word_count":null,"new":[{}]})");
    const auto response = await(transcribe());
    EXPECT_EQ(response.text, QStringLiteral("hallo"));
    EXPECT_EQ(response.languageDetected, QStringLiteral("de"));
    EXPECT_EQ(response.durationMs, 1200);
    EXPECT_EQ(response.wordCount, std::nullopt);

    ASSERT_EQ(m_server.requests.size(), 1);
    const auto& request = m_server.requests.front();
    EXPECT_EQ(request.line, "POST /api/v1/transcription/file HTTP/1.1");
    EXPECT_EQ(request.header("Authorization"), "Bearer token-1");
    EXPECT_EQ(request.header("X-Platform"), "macOS");
    const auto type = request.header("Content-Type");
    EXPECT_THAT(
        type.toStdString(),
        testing::MatchesRegex("multipart/form-data; boundary=Boundary-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    const auto edge = "--" + type.mid(type.indexOf("Boundary-"));
    const auto parts = [&] {
        QByteArrayList found;
        for (auto rest = request.body; rest.startsWith(edge + "\r\n");) {
            const auto next = rest.indexOf("\r\n" + edge, edge.size());
            found << rest.mid(edge.size() + 2, next - edge.size() - 2);
            rest = rest.mid(next + 2);
            if (rest == edge + "--\r\n")
                found << "end";
        }
        return found;
    }();
    ASSERT_EQ(parts.size(), 5) << request.body.toStdString();
    const auto pcm = pcmOf({1, 2, 3, 4});
    EXPECT_THAT(parts[0].left(parts[0].indexOf("\r\n\r\n")).toStdString(),
                testing::MatchesRegex("Content-Disposition: form-data; name=\"file\"; "
                                      "filename=\"5f7c1c1e-.*_retranscribe.wav\"\r\nContent-Type: audio/wav"));
    EXPECT_EQ(parts[0].mid(parts[0].indexOf("\r\n\r\n") + 4), pcm::wavHeader(8) + pcm);
    EXPECT_EQ(parts[1], "Content-Disposition: form-data; name=\"language\"\r\n\r\nde");
    EXPECT_EQ(parts[2], "Content-Disposition: form-data; name=\"purpose\"\r\n\r\npending");
    EXPECT_EQ(parts[3], "Content-Disposition: form-data; name=\"client_recording_id\"\r\n\r\nclient-1");
    EXPECT_EQ(parts[4], "end");
    expectNoLeftovers();
}

TEST_F(TranscriptionFileClientTest, EveryAnswerIsAResultOrATypedError) {
    const QByteArray unexpected = "An unexpected server error occurred. Please try again.";
    struct Case {
        const char* name;
        QByteArray status;
        QByteArray body;
        Kind kind;
        QByteArray text;
    };
    const Case cases[] = {
        {"no JSON", "200 OK", "<html>", Kind::decodingFailed, "Failed to decode server response."},
        {"empty", "200 OK", "", Kind::decodingFailed, "Failed to decode server response."},
        {"no text", "200 OK", "{}", Kind::decodingFailed, "Failed to decode server response."},
        {"null text", "200 OK", R"({"text":null})", Kind::decodingFailed, "Failed to decode server response."},
        {"wrong type", "200 OK", R"({"text":"a","duration_ms":"1"})", Kind::decodingFailed,
         "Failed to decode server response."},
        {"too deep", "200 OK", QByteArray(5'000'000, '['), Kind::decodingFailed, "Failed to decode server response."},
        {"another success", "201 Created", R"({"text":"a"})", Kind::serverError, unexpected},
        {"detail first", "422 No", R"({"error":"e","message":"m","detail":"The audio is too long.","code":"c"})",
         Kind::serverError, "The audio is too long."},
        {"message next", "500 No", R"({"code":"c","error":"e","message":"m"})", Kind::serverError, "m"},
        {"only a code", "500 No", R"({"detail":null,"code":"BUSY"})", Kind::serverError, "BUSY"},
        {"wrapped", "422 No", R"({"detail":[{"loc":["body"],"msg":"field\nrequired"}]})", Kind::serverError,
         "field required"},
        {"a proxy's page", "502 Bad Gateway", "<html>nginx</html>", Kind::serverError, unexpected},
        {"unknown", "404 Not Found", "{}", Kind::serverError, unexpected},
    };
    for (const auto& [name, status, body, kind, text] : cases) {
        answer(status, body);
        const auto error = errorOf(transcribe());
        EXPECT_EQ(error.kind(), kind) << name << ": " << error.what();
        EXPECT_EQ(error.what(), text.toStdString()) << name;
        EXPECT_EQ(error.status(), kind == Kind::serverError ? status.left(3).toInt() : 0) << name;
        expectNoLeftovers();
    }
}

TEST_F(TranscriptionFileClientTest, AnswersThatBreakOffGrowOrNeverEndAreErrors) {
    struct Case {
        const char* name;
        std::function<void(QSslSocket&)> answer;
        Kind kind;
    };
    const QByteArray ok = "HTTP/1.1 200 OK\r\n";
    const Case cases[] = {
        {"closed", [](QSslSocket& c) { c.disconnectFromHost(); }, Kind::unreachable},
        {"cut short",
         [&](QSslSocket& c) {
             c.write(ok + "Content-Length: 20\r\n\r\n{\"text\":\"a\"}");
             c.disconnectFromHost();
         },
         Kind::unreachable},
        {"cut in chunks",
         [&](QSslSocket& c) {
             c.write(ok + "Transfer-Encoding: chunked\r\n\r\nC\r\n{\"text\":\"a\"}\r\n");
             c.disconnectFromHost();
         },
         Kind::unreachable},
        {"announced beyond all measure",
         [&](QSslSocket& c) { c.write(ok + "Content-Length: 99999999999\r\n\r\n{\"text\":"); }, Kind::invalidResponse},
        {"endless",
         [&](QSslSocket& c) {
             c.write(ok + "\r\n{\"text\":\"");
             const auto more = [&c] {
                 if (c.encryptedBytesToWrite() == 0)
                     c.write(QByteArray(1'000'000, 'a'));
             };
             QObject::connect(&c, &QSslSocket::encryptedBytesWritten, &c, more);
             more();
         },
         Kind::invalidResponse},
        {"no HTTP",
         [](QSslSocket& c) {
             c.write("SSH-2.0-OpenSSH\r\n");
             c.disconnectFromHost();
         },
         Kind::unreachable},
    };
    for (const auto& [name, answerWith, kind] : cases) {
        m_script = [&](const Server::Request&, QSslSocket& connection) { answerWith(connection); };
        const auto error = errorOf(transcribe());
        EXPECT_EQ(error.kind(), kind) << name << ": " << error.what();
        expectNoLeftovers();
    }
}

TEST_F(TranscriptionFileClientTest, TimeRunsOutForSilenceAndForATrickle) {
    QPointer<QSslSocket> connection;
    m_script = [&](const Server::Request&, QSslSocket& asked) { connection = &asked; };
    const auto failsAfter = [&](auto task, std::chrono::seconds limit) {
        EXPECT_TRUE(waitUntil([&] { return connection && m_clock.pending() == 1; }));
        m_clock.advance(limit - 1s);
        EXPECT_EQ(m_clock.pending(), 1U) << "given up too early";
        m_clock.advance(1s);
        return errorOf(std::move(task)).kind();
    };
    EXPECT_EQ(failsAfter(transcribe(), 300s), Kind::unreachable);
    EXPECT_TRUE(waitUntil([&] { return !connection; }));
    EXPECT_EQ(failsAfter(m_client->pollDiarization(QStringLiteral("task")), 30s), Kind::unreachable);
    EXPECT_TRUE(waitUntil([&] { return !connection; }));

    // A byte now and then: however many come, the answer has an end.
    auto task = transcribe();
    ASSERT_TRUE(waitUntil([&] { return !connection.isNull(); }));
    connection->write("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
    QTimer drip;
    QObject::connect(&drip, &QTimer::timeout, &m_server, [&] {
        if (connection)
            connection->write("a");
        m_clock.advance(100s);
    });
    drip.start(0);
    EXPECT_THAT(errorOf(std::move(task)).kind(), testing::AnyOf(Kind::invalidResponse, Kind::unreachable));
    expectNoLeftovers();
}

TEST_F(TranscriptionFileClientTest, TheTokenGoesToNoOtherHost) {
    int elsewhere = 0;
    const Server other(m_certificate.serverConfiguration(), [&](const Server::Request&, QSslSocket& connection) {
        ++elsewhere;
        Server::answer(connection, "200 OK", R"({"text":"stolen"})");
    });
    for (const auto* const status : {"301 Moved", "302 Found", "307 Temporary Redirect", "308 Permanent Redirect"}) {
        answer(status, "", "Location: " + other.url(QStringLiteral("/x")).toEncoded() + "\r\n");
        const auto error = errorOf(transcribe());
        EXPECT_EQ(error.kind(), Kind::serverError) << status;
        EXPECT_TRUE(error.message().contains(QStringLiteral("localhost"))) << error.what();
    }
    EXPECT_EQ(elsewhere, 0);
    // Nor to a server with an untrusted certificate.
    const TestCertificate stranger;
    Server impostor(stranger.serverConfiguration(),
                    [&](const Server::Request&, QSslSocket&) { ADD_FAILURE() << "spoke to a stranger"; });
    TranscriptionFileClient client({.apiBaseURL = impostor.url({}),
                                    .tokenStorage = m_tokens,
                                    .prepareRequest = [this](QNetworkRequest& r) { m_trust->prepare(r); }},
                                   m_auth, m_clock);
    EXPECT_EQ(errorOf(client.pollDiarization(QStringLiteral("a"))).kind(), Kind::unreachable);
}

TEST_F(TranscriptionFileClientTest, AnExpiredOrRejectedTokenIsRefreshedOnce) {
    m_script = [](const Server::Request& request, QSslSocket& connection) {
        const bool accepted = request.header("Authorization") == "Bearer token-2";
        Server::answer(connection, accepted ? "200 OK" : "401 Unauthorized", R"({"text":"a","detail":"expired"})");
    };
    EXPECT_EQ(await(transcribe()).text, QStringLiteral("a"));
    EXPECT_EQ(m_auth.refreshes, 1);
    EXPECT_EQ(m_server.requests.size(), 2);

    // Known to be expired: nothing is sent before the refresh.
    m_tokens->setAccessToken(QStringLiteral("token-1"));
    m_tokens->setAccessTokenExpiresAt(m_clock.wallTime().addSecs(59));
    EXPECT_EQ(await(transcribe()).text, QStringLiteral("a"));
    EXPECT_EQ(m_auth.refreshes, 2);
    EXPECT_EQ(m_server.requests.size(), 3);

    // Rejected again with the new token: the answer is final.
    m_tokens->setAccessTokenExpiresAt(m_clock.wallTime().addSecs(3600));
    m_auth.onRefresh = [this] { m_tokens->setAccessToken(QStringLiteral("token-3")); };
    m_tokens->setAccessToken(QStringLiteral("token-1"));
    const auto error = errorOf(transcribe());
    EXPECT_EQ(error.status(), 401);
    EXPECT_EQ(m_auth.refreshes, 3);
    EXPECT_EQ(m_server.requests.size(), 5);
}

TEST_F(TranscriptionFileClientTest, WithoutASessionNothingIsSent) {
    answer("401 Unauthorized", "{}");
    const auto refuse = [this](AuthError::Kind kind) {
        m_auth.onRefresh = [kind] { throw AuthError(kind, AuthError::Code::refreshFailed, QStringLiteral("no")); };
    };
    refuse(AuthError::Kind::authentication);
    const auto error = errorOf(transcribe());
    EXPECT_EQ(error.kind(), Kind::notAuthenticated);
    EXPECT_STREQ(error.what(), "Sign in to re-transcribe audio.");
    refuse(AuthError::Kind::transport);
    EXPECT_EQ(errorOf(transcribe()).kind(), Kind::unreachable);
    EXPECT_EQ(m_auth.anonymousSessions, 0) << "a signed-in user must sign in again";

    // An anonymous session that the server forgot is replaced.
    refuse(AuthError::Kind::authentication);
    m_auth.user->isAnonymous = true;
    m_auth.onAnonymousSession = [this] {
        m_tokens->setAccessToken(QStringLiteral("token-9"));
        answer("200 OK", R"({"text":"a"})");
    };
    EXPECT_EQ(await(transcribe()).text, QStringLiteral("a"));

    const auto sent = m_server.requests.size();
    m_tokens->clear();
    EXPECT_EQ(errorOf(transcribe()).kind(), Kind::notAuthenticated);
    EXPECT_EQ(errorOf(m_client->recoverDiarizationByRecordingId(audioId)).kind(), Kind::notAuthenticated);
    EXPECT_EQ(m_server.requests.size(), sent);
    expectNoLeftovers();
}

TEST_F(TranscriptionFileClientTest, MissingAudioIsSaidBeforeAnyRequest) {
    const auto gone = [&](const QString& id) {
        return errorOf(m_client->retranscribeRecord(id, {}, transcriptionPurpose::pending, {})).kind();
    };
    m_folder.write(QStringLiteral("empty.pcm"), "x");
    for (const auto& id : {QStringLiteral("gone"), QStringLiteral("empty"), QStringLiteral("../authority"), QString()})
        EXPECT_EQ(gone(id), Kind::audioFileMissing) << id.toStdString();
    EXPECT_STREQ(errorOf(m_client->diarizeRecord(QStringLiteral("gone"), {})).what(),
                 "Audio file is no longer available on disk.");
    EXPECT_EQ(errorOf(m_client->transcribeFile(m_folder.path(QStringLiteral("x.wav")), {}, {}, {})).kind(),
              Kind::audioFileMissing);
    EXPECT_EQ(errorOf(m_client->transcribeFile(m_folder.path(), {}, {}, {})).kind(), Kind::audioFileUnreadable);
    EXPECT_EQ(errorOf(m_client->pollDiarization(QStringLiteral("../../auth/me"))).kind(), Kind::invalidURL);
    EXPECT_EQ(m_server.requests.size(), 0);
}

TEST_F(TranscriptionFileClientTest, AMeetingIsMixedAndItsTaskCanBeAskedFor) {
    auto metadata = pendingAudioFiles::readMetadata(audioId);
    metadata.systemAudioId = QStringLiteral("system");
    m_folder.write(QStringLiteral("system.pcm"), pcmOf({10, 20, 30, 40, 50}));
    pendingAudioFiles::writeMetadata(metadata);
    const QByteArray result = R"("plain_text":"Hello there","processed_text":"A: Hello there","speaker_count":2,
        "segments":[{"speaker_label":"A","start":0,"end":1.5,"start_formatted":"00:00","end_formatted":"00:01",
        "text":"Hello"},{"text":"there","speaker_label":null}],"summary":"Greetings")";
    answer("200 OK", "{" + result + "}");
    const auto response = await(m_client->diarizeRecord(audioId, {}));
    EXPECT_EQ(response.plainText, QStringLiteral("Hello there"));
    EXPECT_EQ(response.processedText, QStringLiteral("A: Hello there"));
    ASSERT_EQ(response.segments.size(), 2U);
    EXPECT_EQ(response.segments[0].end, 1.5);
    EXPECT_EQ(response.segments[1].speakerLabel, QString());
    EXPECT_EQ(response.actionItems, std::nullopt);
    EXPECT_EQ(m_server.requests.front().line, "POST /api/v1/transcription/diarize HTTP/1.1");
    const auto& body = m_server.requests.front().body;
    EXPECT_TRUE(body.contains(pcm::wavHeader(10) + pcmOf({11, 22, 33, 44, 50}) + "\r\n"));
    EXPECT_TRUE(body.contains("name=\"language\"\r\n\r\nauto\r\n"));
    EXPECT_FALSE(body.contains("client_recording_id"));

    struct Case {
        QByteArray status;
        QByteArray body;
        std::optional<bool> isDone; ///< nothing: no such task
    };
    const Case cases[] = {{"404 Not Found", R"({"detail":"unknown"})", std::nullopt},
                          {"200 OK", R"({"status":"processing","task_id":"t"})", false},
                          {"200 OK", R"({"status":"completed","task_id":"t",)" + result + "}", true}};
    for (const auto& [status, content, isDone] : cases) {
        answer(status, content);
        const auto polled = await(m_client->pollDiarization(QStringLiteral("t")));
        EXPECT_EQ(m_server.requests.back().line, "GET /api/v1/transcription/diarization/t HTTP/1.1");
        const auto recovered = await(m_client->recoverDiarizationByRecordingId(audioId));
        EXPECT_EQ(m_server.requests.back().line,
                  "GET /api/v1/transcription/recording/" + audioId.toLatin1() + "/diarization HTTP/1.1");
        EXPECT_EQ(polled, recovered);
        ASSERT_EQ(polled.has_value(), isDone.has_value()) << content.toStdString();
        if (polled) {
            EXPECT_EQ(polled->isDone(), *isDone);
            EXPECT_EQ(polled->result.has_value(), *isDone);
        }
    }
    for (const auto* const bad : {R"({"task_id":"t"})", R"({"status":"completed"})", R"({"status":1})",
                                  R"({"status":"completed","plain_text":"a","segments":{}})",
                                  R"({"status":"completed","plain_text":"a","segments":[1]})"}) {
        answer("200 OK", bad);
        EXPECT_EQ(errorOf(m_client->pollDiarization(QStringLiteral("t"))).kind(), Kind::decodingFailed) << bad;
    }
    answer("500 No", R"({"detail":"broken"})");
    EXPECT_STREQ(errorOf(m_client->pollDiarization(QStringLiteral("t"))).what(), "broken");
}

TEST_F(TranscriptionFileClientTest, AClientThatGoesEndsItsCallsAndLogsNoToken) {
    const LogLines log;
    QPointer<QSslSocket> connection;
    m_script = [&](const Server::Request&, QSslSocket& asked) { connection = &asked; };
    auto task = transcribe();
    ASSERT_TRUE(waitUntil([&] { return !connection.isNull(); }));
    m_client.reset();
    EXPECT_EQ(errorOf(std::move(task)).kind(), Kind::unreachable);
    EXPECT_EQ(m_clock.pending(), 0U);
    expectNoLeftovers();
    m_client = makeClient();
    auto converting = transcribe();
    m_client.reset();
    EXPECT_EQ(errorOf(std::move(converting)).kind(), Kind::unreachable);
    expectNoLeftovers();
    EXPECT_EQ(log.count("token-"), 0) << log.text();
}

} // namespace
} // namespace quillo::test
