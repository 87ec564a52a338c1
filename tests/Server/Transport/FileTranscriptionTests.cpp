#include "FileFixture.h"

using namespace quillo::test;
using quillo::server::Json;
using quillo::server::ServerOptions;

namespace {

class FileTranscription : public testing::Test {
protected:
    std::shared_ptr<GatedRecogniser> recogniser = std::make_shared<GatedRecogniser>();
    TestServer server{recogniser};
    QString token = server.token();
};

struct Format {
    const char* name;
    QByteArray file;
    int samples; ///< that the recogniser hears
};

QByteArray withHeader(QByteArray file, int offset, const QByteArray& bytes) {
    return file.replace(offset, bytes.size(), bytes);
}

TEST_F(FileTranscription, ReadsEveryRateAndChannelCount) {
    const Format formats[] = {
        {"16 kHz mono", wav(32000), 32000},
        {"44.1 kHz stereo", wav(88200, 44100, 2), 32000},
        {"8 kHz mono", wav(12345, 8000), 24690},
        {"192 kHz mono", wav(192000, 192000), 16000},
        {"48 kHz stereo of an odd length", wav(100001, 48000, 2), 33334},
        {"one sample", wav(1), 1},
        {"a length that says unknown", withHeader(wav(16000), 40, QByteArray(4, '\xff')), 16000},
        {"a length of 0, as of a writer that was cut off", withHeader(wav(16000), 40, QByteArray(4, '\0')), 16000},
        {"half a sample too much", wav(16000) + QByteArray(1, 'x'), 16000},
        {"a chunk of odd length before the format", wav(16000).insert(12, QByteArray("LIST\3\0\0\0abc\0", 12)), 16000},
    };
    for (const auto& [name, file, samples] : formats) {
        const auto answer = upload(server, token, {.file = file});
        ASSERT_EQ(answer.status, 200) << name << answer.body;
        const int heard = std::atoi(answer.body["text"].get<std::string>().substr(6).c_str());
        EXPECT_NEAR(heard, samples, 1) << name;
        EXPECT_EQ(answer.body["duration_ms"], heard / 16) << name;
        EXPECT_EQ(answer.body["word_count"], 2);
        EXPECT_EQ(answer.body["language_detected"], "en");
        EXPECT_EQ(answer.body["transcription_id"].get<std::string>().size(), 36U);
    }
    EXPECT_TRUE(recogniser->lastOptions.background);
    EXPECT_EQ(recogniser->lastOptions.languages, std::vector<std::string>{"en"});
    EXPECT_EQ(spooledFiles(server), 0U);
}

struct BadUpload {
    const char* name;
    QByteArray body;
    QByteArray contentType;
    int status;
    const char* code;
};

TEST_F(FileTranscription, RefusesWhatIsNoRecordingWithCauseAndNextStep) {
    const QByteArray good = Form().body();
    const auto with = [](QByteArray body, const char* from, const char* to) { return body.replace(from, to); };
    const auto file = [](const QByteArray& bytes) { return Form{.file = bytes}.body(); };
    QByteArray manyParts;
    for (int i = 0; i < 100; ++i)
        manyParts +=
            "--Boundary-1\r\nContent-Disposition: form-data; name=\"x" + QByteArray::number(i) + "\"\r\n\r\n\r\n";
    const BadUpload cases[] = {
        {"JSON", "{}", "application/json", 415, "UNSUPPORTED_MEDIA_TYPE"},
        {"no boundary", good, "multipart/form-data", 400, "MALFORMED_MULTIPART"},
        {"a boundary that is too long", good, "multipart/form-data; boundary=" + QByteArray(71, 'b'), 400,
         "MALFORMED_MULTIPART"},
        {"another boundary", good, "multipart/form-data; boundary=other", 400, "MALFORMED_MULTIPART"},
        {"nothing", {}, formType, 400, "MALFORMED_MULTIPART"},
        {"cut off in the audio", good.left(1000), formType, 400, "MALFORMED_MULTIPART"},
        {"cut off before the closing boundary", good.left(good.size() - 6), formType, 400, "MALFORMED_MULTIPART"},
        {"no audio", with(good, "name=\"file\"", "name=\"other\""), formType, 400, "MISSING_PART"},
        {"audio twice", with(good, "name=\"language\"", "name=\"file\""), formType, 400, "DUPLICATE_PART"},
        {"a part without a name", with(good, "; name=\"language\"", ""), formType, 400, "MALFORMED_MULTIPART"},
        {"a part that is no form data", with(good, "form-data; name=\"purpose\"", "attachment; name=\"purpose\""),
         formType, 400, "MALFORMED_MULTIPART"},
        {"a header line without a colon", with(good, "Content-Type: audio/wav", "Content-Type audio/wav"), formType,
         400, "MALFORMED_MULTIPART"},
        {"a huge part header", with(good, "audio.wav", QByteArray(20000, 'a')), formType, 400, "MALFORMED_MULTIPART"},
        {"too many parts", manyParts + good, formType, 400, "MALFORMED_MULTIPART"},
        {"a long language", Form{.language = QByteArray(2000, 'e')}.body(), formType, 400, "PART_TOO_LARGE"},
        {"a line break in the id", Form{.recordingId = "a\r\nb"}.body(), formType, 400, "INVALID_PART"},
        {"an empty file", file({}), formType, 422, "NO_AUDIO"},
        {"no samples", file(wav(0)), formType, 422, "NO_AUDIO"},
        {"text", file("hello, this is no audio at all"), formType, 422, "UNSUPPORTED_AUDIO"},
        {"a header without an end", file(wav(100).left(30)), formType, 422, "UNSUPPORTED_AUDIO"},
        {"24 bits", file(withHeader(wav(100), 34, QByteArray("\x18\0", 2))), formType, 422, "UNSUPPORTED_AUDIO"},
        {"floating point", file(withHeader(wav(100), 20, QByteArray("\3\0", 2))), formType, 422, "UNSUPPORTED_AUDIO"},
        {"six channels", file(wav(100, 16000, 6)), formType, 422, "UNSUPPORTED_AUDIO"},
        {"a rate of 1", file(wav(100, 1)), formType, 422, "UNSUPPORTED_AUDIO"},
    };
    for (const auto& [name, body, contentType, status, code] : cases) {
        const auto answer = parseAnswer(
            server.exchangeEncrypted(uploadRequest("/api/v1/transcription/file", token, body, contentType)));
        EXPECT_EQ(answer.status, status) << name << answer.body;
        EXPECT_EQ(answer.body.value("code", ""), code) << name;
        EXPECT_GT(answer.body.value("detail", "").size(), 20U) << name;
        EXPECT_EQ(spooledFiles(server), 0U) << name;
    }
    EXPECT_EQ(recogniser->opened, 0);
}

TEST_F(FileTranscription, AsksForAToken) {
    for (const char* path : {"/transcription/file", "/api/v1/transcription/diarize"}) {
        const auto answer = parseAnswer(exchange(server.port(), uploadRequest(path, u"x"_qs, Form().body())));
        EXPECT_EQ(answer.status, 401);
        EXPECT_EQ(answer.body["code"], "INVALID_TOKEN");
    }
    EXPECT_EQ(getAs(server, u"x"_qs, "/transcription/diarization/y").status, 401);
}

TEST_F(FileTranscription, ARetryJoinsTheRunningTaskAndThenItsResult) {
    recogniser->hold();
    const QByteArray request = uploadRequest("/transcription/file", token, Form{.recordingId = "r1"}.body());
    OpenRequest first(server, request);
    ASSERT_TRUE(waitUntil([&] { return recogniser->opened == 1; }));
    OpenRequest second(server, request);
    // The second has been taken in when its copy of the audio has gone again.
    ASSERT_TRUE(waitUntil([&] { return spooledFiles(server) == 1; }));
    recogniser->release();
    const auto answer = first.answer();
    ASSERT_EQ(answer.status, 200);
    EXPECT_EQ(second.answer().body, answer.body);
    EXPECT_EQ(upload(server, token, {.recordingId = "r1"}).body, answer.body);
    EXPECT_EQ(recogniser->opened, 1);
}

struct Variation {
    const char* name;
    Form form;
    bool otherAccount;
    bool isRecognised;
};

TEST_F(FileTranscription, OnlyTheSameRequestOfTheSameAccountIsARetry) {
    ASSERT_EQ(upload(server, token, {.recordingId = "r1"}).status, 200);
    const QString other = server.token("another device");
    const Variation cases[] = {
        {"the same", {.recordingId = "r1"}, false, false},
        {"another purpose", {.purpose = "sharing", .recordingId = "r1"}, false, false},
        {"another language", {.language = "de", .recordingId = "r1"}, false, true},
        {"that language again", {.language = "de", .recordingId = "r1"}, false, false},
        {"other audio", {.file = wav(16001), .recordingId = "r1"}, false, true},
        {"another recording", {.recordingId = "r2"}, false, true},
        {"no recording", {}, false, true},
        {"a wish for a new text", {.purpose = "retranscribe", .recordingId = "r1"}, false, true},
        {"the retry of that wish", {.purpose = "retranscribe", .recordingId = "r1"}, false, false},
        {"another account", {.recordingId = "r1"}, true, true},
    };
    for (const auto& [name, form, otherAccount, isRecognised] : cases) {
        const int before = recogniser->opened;
        EXPECT_EQ(upload(server, otherAccount ? other : token, form).status, 200) << name;
        EXPECT_EQ(recogniser->opened - before, isRecognised ? 1 : 0) << name;
    }
}

TEST_F(FileTranscription, WorkGoesOnWhenTheClientHangsUp) {
    recogniser->hold();
    {
        OpenRequest gone(server, uploadRequest("/transcription/file", token, Form{.recordingId = "r1"}.body()));
        ASSERT_TRUE(waitUntil([&] { return recogniser->opened == 1; }));
        gone.socket.abort();
    }
    ASSERT_TRUE(waitUntil([&] { return server->connectionCount() == 0; }));
    recogniser->release();
    ASSERT_TRUE(waitUntil([&] { return spooledFiles(server) == 0; }));
    EXPECT_EQ(upload(server, token, {.recordingId = "r1"}).body["text"], "heard 16000");
    EXPECT_EQ(recogniser->opened, 1);
}

TEST_F(FileTranscription, UploadsKeepNobodyFromDictating) {
    recogniser->blockNames(true);
    std::vector<std::unique_ptr<OpenRequest>> uploads;
    for (const char* recording : {"1", "2", "3", "4"})
        uploads.push_back(std::make_unique<OpenRequest>(
            server, uploadRequest("/transcription/file", token, Form{.recordingId = recording}.body())));
    ASSERT_TRUE(waitUntil([&] { return recogniser->blocked == 4; }));
    StreamClient client(server.streamUrl(token));
    client.next("connected");
    EXPECT_EQ(get(server.port(), "/health").status, 200);
    recogniser->blockNames(false);
    for (const auto& upload : uploads)
        EXPECT_EQ(upload->answer().status, 200);
}

TEST_F(FileTranscription, AFailureIsToldAndTriedAgain) {
    recogniser->isRefusing = true;
    const auto failed = upload(server, token, {.recordingId = "r1"});
    EXPECT_EQ(failed.status, 503);
    EXPECT_EQ(failed.body["code"], "STT_UNAVAILABLE");
    EXPECT_TRUE(failed.header.contains("Retry-After"));
    EXPECT_EQ(spooledFiles(server), 0U);
    recogniser->isRefusing = false;
    EXPECT_EQ(upload(server, token, {.recordingId = "r1"}).status, 200);
}

TEST_F(FileTranscription, RemovingTheAccountRemovesAllOfItAndStopsItsWork) {
    recogniser->hold();
    const QByteArray request = uploadRequest("/transcription/diarize", token, Form{.recordingId = "r1"}.body());
    OpenRequest waiting(server, request);
    ASSERT_TRUE(waitUntil([&] { return recogniser->opened == 1; }));
    const QString other = server.token("another device");
    EXPECT_EQ(removeAccount(server, u"x"_qs).status, 401);
    EXPECT_EQ(removeAccount(server, token).status, 200);
    EXPECT_EQ(waiting.answer().status, 404);
    EXPECT_EQ(spooledFiles(server), 0U);
    EXPECT_EQ(removeAccount(server, token).status, 401);
    EXPECT_EQ(getAs(server, token, "/users/me").status, 401);
    EXPECT_EQ(getAs(server, other, "/users/me").status, 200);
    const QString again = server.token(); // the same device, a new user
    EXPECT_EQ(getAs(server, again, "/transcription/recording/r1/diarization").status, 404);
    recogniser->release();
}

TEST_F(FileTranscription, WhatWasHeardLiveIsNotRecognisedAgain) {
    StreamClient client(server.streamUrl(token));
    client.next("connected");
    client.send(R"({"type":"start_session","languages":["en"],"client_recording_id":"live"})");
    client.sendAudio(tone(16000));
    const Json ended = client.finish(0);

    // The text is kept on another thread than the one that sends; the same audio finds it.
    ASSERT_TRUE(waitUntil([&] {
        return upload(server, token, {.purpose = {}, .recordingId = "live"}).body["transcription_id"] ==
               ended["transcription_id"];
    }));
    const int before = recogniser->opened;
    EXPECT_EQ(upload(server, token, {.recordingId = "live"}).body["text"], ended["text"]);
    EXPECT_EQ(recogniser->opened, before);
    const std::pair<const char*, Form> cases[] = {
        {"one sample more", {.file = wav(16001), .recordingId = "live"}},
        {"one sample different", {.file = withHeader(wav(16000), 5000, "xy"), .recordingId = "live"}},
        {"another language", {.language = "fr", .recordingId = "live"}},
        {"a wish for a new text", {.purpose = "retranscribe", .recordingId = "live"}},
    };
    for (const auto& [name, form] : cases) {
        const int opened = recogniser->opened;
        EXPECT_EQ(upload(server, token, form).status, 200) << name;
        EXPECT_EQ(recogniser->opened, opened + 1) << name;
    }
}

TEST(FileTranscriptionLimits, ALongRecognitionIsAnsweredBeforeTheClientGivesUp) {
    auto [recogniser, server, token] = gatedServer({.answerTimeout = std::chrono::milliseconds(50)});
    recogniser->hold();
    const auto early = upload(server, token, {.recordingId = "r1"});
    EXPECT_EQ(early.status, 202);
    EXPECT_EQ(early.body["status"], "processing");
    EXPECT_TRUE(early.header.contains("Retry-After"));
    recogniser->release();
    ASSERT_TRUE(waitUntil([&] { return spooledFiles(server) == 0; }));
    EXPECT_EQ(upload(server, token, {.recordingId = "r1"}).status, 200);
    EXPECT_EQ(recogniser->opened, 1);
}

TEST(FileTranscriptionLimits, BoundsBytesAndTasks) {
    auto [recogniser, server, token] = gatedServer({.maxUploadBytes = 100000,
                                                    .maxSpoolBytes = 120000,
                                                    .maxTasksPerUser = 2,
                                                    .answerTimeout = std::chrono::milliseconds(1)});
    EXPECT_EQ(upload(server, token, {.file = wav(60000)}).body["code"], "UPLOAD_TOO_LARGE");
    EXPECT_EQ(upload(server, token, {.file = wav(600000)}).body["code"], "BODY_TOO_LARGE");
    EXPECT_EQ(spooledFiles(server), 0U);

    recogniser->hold();
    EXPECT_EQ(upload(server, token, {.file = wav(40000)}).status, 202);
    const auto full = upload(server, token, {.file = wav(30000)});
    EXPECT_EQ(full.status, 507);
    EXPECT_EQ(full.body["code"], "INSUFFICIENT_STORAGE");
    EXPECT_EQ(upload(server, token, {.file = wav(100)}).status, 202);
    EXPECT_EQ(upload(server, token, {.file = wav(101)}).body["code"], "TOO_MANY_TASKS");
    EXPECT_EQ(upload(server, server.token("other"), {.file = wav(101)}).status, 202);
    EXPECT_EQ(spooledFiles(server), 3U);
    recogniser->release();
    ASSERT_TRUE(waitUntil([&] { return spooledFiles(server) == 0; }));
    EXPECT_EQ(upload(server, token, {.file = wav(40000)}).status, 200);
}

/// An upload up to its body, for which it waits to be asked.
QByteArray headOfUpload(const QString& token) {
    const auto body = Form().body();
    return uploadRequest("/transcription/file", token, body, formType, "Expect: 100-continue\r\n").chopped(body.size());
}

TEST(FileTranscriptionLimits, CutsSlowUploadsAndTakesNotTooManyAtOnce) {
    auto [recogniser, server, token] =
        gatedServer({.maxUploadsPerUser = 1, .requestTimeout = std::chrono::milliseconds(1500)});
    OpenRequest slow(server, headOfUpload(token));
    ASSERT_TRUE(waitUntil([&] { return slow.socket.readAll().startsWith("HTTP/1.1 100"); }));
    slow.socket.write(Form().body().left(3000));
    const auto second =
        parseAnswer(exchange(server.port(), uploadRequest("/transcription/file", token, Form().body())));
    EXPECT_EQ(second.status, 429);
    EXPECT_EQ(second.body["code"], "TOO_MANY_UPLOADS");
    EXPECT_EQ(slow.answer().status, 0); // cut, with nothing said
    ASSERT_TRUE(waitUntil([&] { return spooledFiles(server) == 0 && server->connectionCount() == 0; }));
    EXPECT_EQ(upload(server, token, {}).status, 200);
}

TEST(FileTranscriptionLimits, TellsBeforeTheBodyWhenItIsAskedTo) {
    TestServer server(std::make_shared<GatedRecogniser>());
    OpenRequest refused(server, headOfUpload(u"x"_qs));
    EXPECT_EQ(refused.answer().status, 401);
    OpenRequest taken(server, headOfUpload(server.token()));
    ASSERT_TRUE(waitUntil([&] { return taken.socket.bytesAvailable() > 0; }));
    EXPECT_TRUE(taken.socket.readAll().startsWith("HTTP/1.1 100"));
    taken.socket.write(Form().body());
    EXPECT_EQ(taken.answer().status, 200);
}

} // namespace
