#include "Services/Upload/TranscriptionFileClient.h"

#include "Services/Auth/InMemoryTokenStorage.h"
#include "Services/Mock/MockAuthService.h"
#include "Services/Network/TrustedNetwork.h"
#include "Services/Recordings/PCMFiles.h"
#include "Services/Recordings/RecordingsFolder.h"
#include "Support/Async.h"
#include "Support/Files.h"
#include "Support/LogLines.h"
#include "Support/ScriptedServer.h"
#include "Support/TestCertificate.h"

#include <QTimer>

#include <gmock/gmock.h>

namespace quillo::test {
namespace {

using Kind = TranscriptionFileClientError::Kind;
using Server = ScriptedServer;
using namespace std::chrono_literals;

const QString audioId = u"5f7c1c1e-0000-4000-8000-000000000001"_qs;

class TranscriptionFileClientTest : public testing::Test {
protected:
    TranscriptionFileClientTest() {
        m_tokens->setAccessToken(u"token-1"_qs);
        m_auth.onRefresh = [this] { m_tokens->setAccessToken(u"token-2"_qs); };
        writeFile(m_folder.outside(u"authority.pem"_qs), m_certificate.authorityPem());
        m_folder.add(RecordingsFolder::metadata(audioId, QDateTime::currentDateTimeUtc()), pcmOf({1, 2, 3, 4}));
    }

    std::unique_ptr<TranscriptionFileClient> makeClient() {
        return std::make_unique<TranscriptionFileClient>(
            TranscriptionFileClient::Config{
                .apiBaseURL = m_server.url(u"https"_qs, u"/api/v1"_qs),
                .tokenStorage = m_tokens,
                .prepareRequest = [this](QNetworkRequest& request) { m_trust->prepare(request); },
            },
            m_auth, m_clock);
    }

    Task<TranscriptionFileResponse> transcribe() {
        return m_client->retranscribeRecord(audioId, u"de"_qs, transcriptionPurpose::pending, u"client-1"_qs);
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
        EXPECT_EQ(m_folder.names(), QStringList({audioId + u".json"_qs, audioId + u".pcm"_qs}));
    }

    RecordingsFolder m_folder;
    TestCertificate m_certificate;
    ManualClock m_clock{EventExecutor::main()};
    MockAuthService m_auth;
    std::shared_ptr<InMemoryTokenStorage> m_tokens = std::make_shared<InMemoryTokenStorage>();
    std::shared_ptr<TrustedNetwork> m_trust = std::make_shared<TrustedNetwork>(m_folder.outside(u"authority.pem"_qs));
    Server::Script m_script;
    Server m_server{m_certificate.serverConfiguration(),
                    [this](const Server::Request& request, QSslSocket& connection) { m_script(request, connection); }};
    std::unique_ptr<TranscriptionFileClient> m_client = makeClient();
};

TEST_F(TranscriptionFileClientTest, SendsTheFormThatTheServerReads) {
    answer("200 OK", R"({"text":"hallo","language_detected":"de","duration_ms":1200.0,"word_count":null,"new":[{}]})");
    const auto response = await(transcribe());
    EXPECT_EQ(response.text, u"hallo"_qs);
    EXPECT_EQ(response.languageDetected, u"de"_qs);
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
    const auto& body = request.body;
    const auto name = body.mid(body.indexOf(audioId.toLatin1()));
    const auto part = [&](const QByteArray& head, const QByteArray& content) -> QByteArray {
        return edge + "\r\nContent-Disposition: form-data; name=" + head + "\r\n\r\n" + content + "\r\n";
    };
    const auto file = "\"file\"; filename=\"" + name.left(name.indexOf('"')) + "\"\r\nContent-Type: audio/wav";
    EXPECT_TRUE(file.contains("_retranscribe.wav"));
    EXPECT_TRUE(body == part(file, pcm::wavHeader(8) + pcmOf({1, 2, 3, 4})) + part("\"language\"", "de") +
                            part("\"purpose\"", "pending") + part("\"client_recording_id\"", "client-1") + edge +
                            "--\r\n")
        << body.toStdString();
    expectNoLeftovers();
}

TEST_F(TranscriptionFileClientTest, EveryAnswerIsAResultOrATypedError) {
    const char* const undecodable = "Failed to decode server response.";
    const char* const unexpected = "An unexpected server error occurred. Please try again.";
    const std::tuple<QByteArray, QByteArray, const char*> cases[] = {
        {"200 OK", "<html>", undecodable},
        {"200 OK", "", undecodable},
        {"200 OK", "{}", undecodable},
        {"200 OK", R"({"text":null})", undecodable},
        {"200 OK", R"({"text":"a","duration_ms":"1"})", undecodable},
        {"200 OK", QByteArray(5'000'000, '['), undecodable},
        {"201 Created", R"({"text":"a"})", unexpected},
        {"422 No", R"({"error":"e","message":"m","detail":"Too long.","code":"c"})", "Too long."},
        {"500 No", R"({"code":"c","error":"e","message":"m"})", "m"},
        {"500 No", R"({"detail":null,"code":"BUSY"})", "BUSY"},
        {"422 No", R"({"detail":[{"loc":["body"],"msg":"field\nrequired"}]})", "field required"},
        {"502 Bad Gateway", "<html>nginx</html>", unexpected},
        {"404 Not Found", "{}", unexpected},
    };
    for (const auto& [status, body, text] : cases) {
        SCOPED_TRACE((status + ' ' + body.left(80)).toStdString());
        answer(status, body);
        const auto error = errorOf(transcribe());
        EXPECT_STREQ(error.what(), text);
        EXPECT_EQ(error.kind(), text == undecodable ? Kind::decodingFailed : Kind::serverError);
        EXPECT_EQ(error.status(), text == undecodable ? 0 : status.left(3).toInt());
        expectNoLeftovers();
    }
}

TEST_F(TranscriptionFileClientTest, AnswersThatBreakOffGrowOrNeverEndAreErrors) {
    using Answer = std::function<void(QSslSocket&)>;
    const QByteArray ok = "HTTP/1.1 200 OK\r\n";
    const auto closeAfter = [](const QByteArray& bytes) {
        return [bytes](QSslSocket& c) {
            c.write(bytes);
            c.disconnectFromHost();
        };
    };
    const auto endless = [&](QSslSocket& c) {
        c.write(ok + "\r\n{\"text\":\"");
        const auto more = [&c] {
            if (c.encryptedBytesToWrite() == 0)
                c.write(QByteArray(1'000'000, 'a'));
        };
        QObject::connect(&c, &QSslSocket::encryptedBytesWritten, &c, more);
        more();
    };
    const auto huge = [&](QSslSocket& c) { c.write(ok + "Content-Length: 99999999999\r\n\r\n{\"text\":"); };
    const std::tuple<const char*, Answer, Kind> cases[] = {
        {"closed", closeAfter({}), Kind::unreachable},
        {"cut short", closeAfter(ok + "Content-Length: 20\r\n\r\n{\"text\":\"a\"}"), Kind::unreachable},
        {"cut in chunks", closeAfter(ok + "Transfer-Encoding: chunked\r\n\r\nC\r\n{\"text\":\"a\"}\r\n"),
         Kind::unreachable},
        {"announced beyond all measure", huge, Kind::invalidResponse},
        {"endless", endless, Kind::invalidResponse},
        {"no HTTP", closeAfter("SSH-2.0-OpenSSH\r\n"), Kind::unreachable},
    };
    for (const auto& [name, answerWith, kind] : cases) {
        m_script = [&answer = answerWith](const Server::Request&, QSslSocket& connection) { answer(connection); };
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
    EXPECT_EQ(failsAfter(m_client->pollDiarization(u"task"_qs), 30s), Kind::unreachable);
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
        answer(status, "", "Location: " + other.url(u"https"_qs, u"/x"_qs).toEncoded() + "\r\n");
        const auto error = errorOf(transcribe());
        EXPECT_EQ(error.kind(), Kind::serverError) << status;
        EXPECT_TRUE(error.message().contains(u"localhost"_qs)) << error.what();
    }
    EXPECT_EQ(elsewhere, 0);
    // Nor to a server with an untrusted certificate.
    const TestCertificate stranger;
    Server impostor(stranger.serverConfiguration(),
                    [&](const Server::Request&, QSslSocket&) { ADD_FAILURE() << "spoke to a stranger"; });
    TranscriptionFileClient client({.apiBaseURL = impostor.url(u"https"_qs),
                                    .tokenStorage = m_tokens,
                                    .prepareRequest = [this](QNetworkRequest& r) { m_trust->prepare(r); }},
                                   m_auth, m_clock);
    EXPECT_EQ(errorOf(client.pollDiarization(u"a"_qs)).kind(), Kind::unreachable);
}

TEST_F(TranscriptionFileClientTest, AnExpiredOrRejectedTokenIsRefreshedOnce) {
    m_script = [](const Server::Request& request, QSslSocket& connection) {
        const bool accepted = request.header("Authorization") == "Bearer token-2";
        Server::answer(connection, accepted ? "200 OK" : "401 Unauthorized", R"({"text":"a","detail":"expired"})");
    };
    EXPECT_EQ(await(transcribe()).text, u"a"_qs);
    EXPECT_EQ(m_auth.refreshes, 1);
    EXPECT_EQ(m_server.requests.size(), 2);

    // Known to be expired: nothing is sent before the refresh.
    m_tokens->setAccessToken(u"token-1"_qs);
    m_tokens->setAccessTokenExpiresAt(m_clock.wallTime().addSecs(59));
    EXPECT_EQ(await(transcribe()).text, u"a"_qs);
    EXPECT_EQ(m_auth.refreshes, 2);
    EXPECT_EQ(m_server.requests.size(), 3);

    // Rejected again with the new token: the answer is final.
    m_tokens->setAccessTokenExpiresAt(m_clock.wallTime().addSecs(3600));
    m_auth.onRefresh = [this] { m_tokens->setAccessToken(u"token-3"_qs); };
    m_tokens->setAccessToken(u"token-1"_qs);
    const auto error = errorOf(transcribe());
    EXPECT_EQ(error.status(), 401);
    EXPECT_EQ(m_auth.refreshes, 3);
    EXPECT_EQ(m_server.requests.size(), 5);
}

TEST_F(TranscriptionFileClientTest, WithoutASessionNothingIsSent) {
    answer("401 Unauthorized", "{}");
    const auto refuse = [this](AuthError::Kind kind) {
        m_auth.onRefresh = [kind] { throw AuthError(kind, AuthError::Code::refreshFailed, u"no"_qs); };
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
        m_tokens->setAccessToken(u"token-9"_qs);
        answer("200 OK", R"({"text":"a"})");
    };
    EXPECT_EQ(await(transcribe()).text, u"a"_qs);

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
    m_folder.write(u"empty.pcm"_qs, "x");
    for (const auto& id : {u"gone"_qs, u"empty"_qs, u"../authority"_qs, QString()})
        EXPECT_EQ(gone(id), Kind::audioFileMissing) << id.toStdString();
    EXPECT_STREQ(errorOf(m_client->diarizeRecord(u"gone"_qs, {})).what(), "Audio file is no longer available on disk.");
    EXPECT_EQ(errorOf(m_client->transcribeFile(m_folder.path(u"x.wav"_qs), {}, {}, {})).kind(), Kind::audioFileMissing);
    EXPECT_EQ(errorOf(m_client->transcribeFile(m_folder.path(), {}, {}, {})).kind(), Kind::audioFileUnreadable);
    EXPECT_EQ(errorOf(m_client->pollDiarization(u"../../auth/me"_qs)).kind(), Kind::invalidURL);
    EXPECT_EQ(m_server.requests.size(), 0);
}

TEST_F(TranscriptionFileClientTest, AMeetingIsMixedAndItsTaskCanBeAskedFor) {
    auto metadata = pendingAudioFiles::readMetadata(audioId);
    metadata.systemAudioId = u"system"_qs;
    m_folder.write(u"system.pcm"_qs, pcmOf({10, 20, 30, 40, 50}));
    pendingAudioFiles::writeMetadata(metadata);
    const QByteArray result = R"("plain_text":"Hello there","processed_text":"A: Hello there","speaker_count":2,
        "segments":[{"speaker_label":"A","start":0,"end":1.5,"start_formatted":"00:00","end_formatted":"00:01",
        "text":"Hello"},{"text":"there","speaker_label":null}],"summary":"Greetings")";
    answer("200 OK", "{" + result + "}");
    const auto response = await(m_client->diarizeRecord(audioId, {}));
    EXPECT_EQ(response.plainText, u"Hello there"_qs);
    EXPECT_EQ(response.processedText, u"A: Hello there"_qs);
    ASSERT_EQ(response.segments.size(), 2U);
    EXPECT_EQ(response.segments[0].end, 1.5);
    EXPECT_EQ(response.segments[1].speakerLabel, QString());
    EXPECT_EQ(response.actionItems, std::nullopt);
    EXPECT_EQ(m_server.requests.front().line, "POST /api/v1/transcription/diarize HTTP/1.1");
    const auto& body = m_server.requests.front().body;
    EXPECT_TRUE(body.contains(pcm::wavHeader(10) + pcmOf({11, 22, 33, 44, 50}) + "\r\n"));
    EXPECT_TRUE(body.contains("name=\"language\"\r\n\r\nauto\r\n"));
    EXPECT_FALSE(body.contains("client_recording_id"));

    // Whether the task is done; nothing: there is none.
    const std::tuple<QByteArray, QByteArray, std::optional<bool>> cases[] = {
        {"404 Not Found", R"({"detail":"unknown"})", std::nullopt},
        {"200 OK", R"({"status":"processing","task_id":"t"})", false},
        {"200 OK", R"({"status":"completed","task_id":"t",)" + result + "}", true}};
    for (const auto& [status, content, isDone] : cases) {
        answer(status, content);
        const auto polled = await(m_client->pollDiarization(u"t"_qs));
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
        EXPECT_EQ(errorOf(m_client->pollDiarization(u"t"_qs)).kind(), Kind::decodingFailed) << bad;
    }
    answer("500 No", R"({"detail":"broken"})");
    EXPECT_STREQ(errorOf(m_client->pollDiarization(u"t"_qs)).what(), "broken");
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
