#include "FileFixture.h"

using namespace quillo::test;
using quillo::server::Json;
using quillo::server::ServerOptions;

namespace {

TEST(Diarization, IsAnsweredAndCanBePolledMeanwhile) {
    auto [recogniser, server, token] = gatedServer({.answerTimeout = std::chrono::milliseconds(1)});
    recogniser->hold();
    const auto begun = upload(server, token, {.recordingId = "meeting one"}, "/transcription/diarize");
    ASSERT_EQ(begun.status, 202);
    const QByteArray byTask =
        "/transcription/diarization/" + QByteArray::fromStdString(begun.body["task_id"].get<std::string>());
    const QByteArray byRecording = "/transcription/recording/meeting%20one/diarization";
    for (const auto& path : {byTask, byRecording}) {
        const auto running = getAs(server, token, path);
        EXPECT_EQ(running.status, 200);
        EXPECT_EQ(running.body["status"], "processing");
        EXPECT_EQ(running.body["task_id"], begun.body["task_id"]);
        EXPECT_EQ(getAs(server, server.token("stranger"), path).status, 404);
    }
    recogniser->release();
    ASSERT_TRUE(waitUntil([&] { return getAs(server, token, byTask).body["status"] == "completed"; }));
    const auto done = getAs(server, token, byRecording).body;
    EXPECT_EQ(done["plain_text"], "heard 16000");
    EXPECT_EQ(done["speaker_count"], 1);
    EXPECT_EQ(done["total_words"], 2);
    EXPECT_EQ(done["duration_ms"], 1000);
    EXPECT_EQ(done["stt_provider"], "gated");
    ASSERT_EQ(done["segments"].size(), 1U);
    EXPECT_EQ(done["segments"][0].dump(),
              R"({"speaker_label":"Speaker 1","start":0.0,"end":1.0,"start_formatted":"00:00","end_formatted":"00:01",)"
              R"("text":"heard 16000"})");
    EXPECT_EQ(upload(server, token, {.recordingId = "meeting one"}, "/transcription/diarize").body["plain_text"],
              "heard 16000");
    EXPECT_EQ(recogniser->opened, 1);
}

TEST(Diarization, UnknownTasksAreNotFoundAndFailedOnesSayWhy) {
    auto [recogniser, server, token] = gatedServer();
    recogniser->isRefusing = true;
    // A transcription does not count as a diarization, even of the same recording.
    upload(server, token, {.recordingId = "r1"});
    for (const char* path : {"/transcription/diarization/nothing", "/transcription/recording/r1/diarization",
                             "/transcription/recording/a/b/diarization", "/transcription/diarization/"})
        EXPECT_EQ(getAs(server, token, path).status, 404) << path;
    EXPECT_EQ(upload(server, token, {.recordingId = "r2"}, "/transcription/diarize").status, 503);
    const auto failed = getAs(server, token, "/transcription/recording/r2/diarization");
    EXPECT_EQ(failed.status, 200);
    EXPECT_EQ(failed.body["status"], "failed");
    EXPECT_EQ(failed.body["message"], "The test wants no recogniser");
}

} // namespace
