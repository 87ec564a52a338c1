#include "FileFixture.h"
#include "ServerProcess.h"

#include <QFile>

#include <csignal>
#include <sys/resource.h>

using namespace quillo::test;

namespace {

/// Uploads survive failures of the server, tested with the real program.
class Recovery : public testing::Test {
protected:
    void SetUp() override {
        QFile file(script);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(R"({"words": ["one", "two"], "words_per_second": 2, "words_per_final": 4, "speed": 20})");
    }
    void start() {
        server.start(u"--listen 127.0.0.1:0 --script "_qs + script);
        if (token.isEmpty())
            token = server.signIn();
    }
    void killServer() {
        server.process.kill();
        ASSERT_TRUE(server.finished());
        server.process.readAllStandardError();
    }
    HttpAnswer send(const Form& what) const {
        return parseAnswer(exchange(server.port, uploadRequest("/transcription/file", token, what.body())));
    }
    /// Begins an upload of ten seconds, which take half a second to recognise, and waits until that has begun.
    void beginUpload() {
        socket.connectToHost(u"127.0.0.1"_qs, server.port);
        socket.write(uploadRequest("/transcription/file", token, form.body()));
        QByteArray log;
        ASSERT_TRUE(waitUntil([&] {
            log += server.process.readAllStandardError();
            return log.contains("begun, attempt 1");
        }));
    }
    [[nodiscard]] qsizetype spooled() const { return QDir(server.data + u"/uploads"_qs).entryList(QDir::Files).size(); }

    QTemporaryDir folder;
    QString script = folder.filePath(u"script.json"_qs);
    ServerProcess server{folder.filePath(u"data"_qs)};
    QString token;
    QTcpSocket socket;
    Form form{.file = wav(160000), .recordingId = "r1"};
};

TEST_F(Recovery, AKilledServerTakesUpWhatItWasDoing) {
    start();
    beginUpload();
    killServer();
    EXPECT_EQ(spooled(), 1);
    {
        // What an upload that was cut off by the kill would have left.
        QFile rest(server.data + u"/uploads/rest.audio"_qs);
        ASSERT_TRUE(rest.open(QIODevice::WriteOnly));
    }
    start();
    // It is completed without a request.
    ASSERT_TRUE(waitUntil([&] { return spooled() == 0; }));
    const auto answer = send(form);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body["word_count"], 20);
    EXPECT_TRUE(waitUntil([&] { return server.process.readAllStandardError().contains("joins task"); }));
}

TEST_F(Recovery, ASignalledServerTakesItUpToo) {
    start();
    beginUpload();
    ::kill(static_cast<pid_t>(server.process.processId()), SIGTERM);
    ASSERT_TRUE(server.finished());
    EXPECT_EQ(server.process.exitCode(), 0);
    EXPECT_EQ(spooled(), 1);
    start();
    EXPECT_EQ(send(form).body["word_count"], 20);
    EXPECT_EQ(spooled(), 0);
}

TEST_F(Recovery, AKilledServerSeparatesTheSpeakersOfAMeetingLater) {
    QFile fast(script);
    ASSERT_TRUE(fast.open(QIODevice::WriteOnly));
    fast.write(R"({"words": ["one"], "words_per_second": 1, "words_per_final": 10})");
    fast.close();
    start();
    StreamClient client(QUrl(u"ws://127.0.0.1:%1/ws/v3/transcribe?token=%2"_qs.arg(server.port).arg(token)));
    client.next("connected");
    client.send(R"({"type":"start_session","mode":"meeting_streaming","client_recording_id":"m"})");
    client.next("session_started");
    // Four minutes, whose voices take longer than the kill.
    for (int i = 0; i < 20; ++i)
        client.sendAudio(tone(12 * 16000));
    client.end();
    const auto ended = client.next("session_ended");
    killServer();
    EXPECT_EQ(spooled(), 1);
    start();
    const auto poll = [&] {
        return parseAnswer(
            exchange(server.port, requestBytes("GET", "/transcription/recording/m/diarization", bearer(token))));
    };
    ASSERT_TRUE(waitUntil([&] { return poll().body["status"] == "completed"; }));
    EXPECT_EQ(poll().body["task_id"], ended["diarization_task_id"]);
    EXPECT_EQ(poll().body["total_words"], 240);
    EXPECT_EQ(spooled(), 0);
}

TEST_F(Recovery, AFileThatEndsTheServerEveryTimeIsGivenUp) {
    start();
    beginUpload();
    const auto logged = [this](const char* text) {
        QByteArray log;
        return waitUntil([&] { return (log += server.process.readAllStandardError()).contains(text); });
    };
    for (int attempt = 1; attempt <= 3; ++attempt) {
        ASSERT_TRUE(attempt == 1 || logged("begun, attempt")); // the first was seen by beginUpload
        killServer();
        start();
    }
    EXPECT_TRUE(logged("is given up"));
    EXPECT_EQ(spooled(), 0);
    form.recordingId = "r2";
    const auto again = send(form);
    EXPECT_EQ(again.status, 422) << "the same audio is not tried again";
    EXPECT_EQ(again.body["code"], "RECOGNITION_CRASHED");
    EXPECT_EQ(spooled(), 0);
    EXPECT_EQ(send({.file = wav(1600)}).status, 200);
}

TEST_F(Recovery, ShortenedAudioIsNotTakenForTheRecording) {
    start();
    beginUpload();
    killServer();
    const auto names = QDir(server.data + u"/uploads"_qs).entryInfoList(QDir::Files);
    ASSERT_EQ(names.size(), 1);
    ASSERT_TRUE(QFile::resize(names.front().filePath(), 1000));
    start();
    EXPECT_EQ(spooled(), 0);
    EXPECT_EQ(send(form).body["word_count"], 20);
}

TEST_F(Recovery, AFullDiskIsToldAndLeavesNothing) {
    server.process.setChildProcessModifier([] {
        const rlimit limit{300000, 300000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    });
    start();
    const auto full = send(form);
    EXPECT_EQ(full.status, 507);
    EXPECT_EQ(full.body["code"], "INSUFFICIENT_STORAGE");
    EXPECT_EQ(spooled(), 0);
    EXPECT_EQ(send({.file = wav(1600)}).status, 200);
}

} // namespace
