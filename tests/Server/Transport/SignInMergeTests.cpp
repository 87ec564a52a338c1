#include "FileFixture.h"
#include "SignInFixture.h"

using namespace quillo::test;
using quillo::server::Json;

namespace {

/// An anonymous session, as the application holds one.
struct Anonymous {
    std::string id;
    std::string access;
    std::string refresh;
    bool isNew = false;
};

class ServerMerge : public testing::Test {
protected:
    Anonymous anonymous(const char* device = "device") const {
        const auto answer = postEncrypted(server, "/api/v1/auth/anonymous", Json{{"device_id", device}});
        const auto& tokens = answer.body.at("tokens");
        return {answer.body.at("user").at("id"), tokens.at("access_token"), tokens.at("refresh_token"),
                answer.body.at("is_new_user")};
    }

    /// Signs Ann in from a page that received the id of an anonymous user; returns her access token.
    std::string signIn(const char* path, const std::string& anonymousId, const QByteArray& headers) const {
        const auto query = with(authorization(), {{"anonymous_user_id", QByteArray::fromStdString(anonymousId)}});
        const auto answer =
            redeem(server, Browser(server).submit(path, annsForm, query).code(), Json::object(), headers);
        EXPECT_EQ(answer.status, 200);
        return answer.body.at("tokens").at("access_token");
    }

    /// Has a recording diarized; the path at which its owner finds it.
    QByteArray record(const std::string& token, const QByteArray& recordingId) const {
        Form form;
        form.recordingId = recordingId;
        EXPECT_EQ(upload(server, QString::fromStdString(token), form, "/transcription/diarize").status, 200);
        return "/transcription/recording/" + recordingId + "/diarization";
    }

    int statusOf(const QByteArray& path, const std::string& token) const {
        return getAs(server, QString::fromStdString(token), path).status;
    }

    std::shared_ptr<GatedRecogniser> recogniser = std::make_shared<GatedRecogniser>();
    TestServer server{recogniser};
};

TEST_F(ServerMerge, MovesWhatBelongsToTheAnonymousUserWhoProvesIt) {
    const auto ann = signIn("/auth/register", "", {});
    const auto annsOwn = record(ann, "of-ann");
    const auto before = anonymous();
    const auto early = record(before.access, "of-nobody");
    const auto account = signIn("/auth/login", before.id, bearer(before.access));
    for (const auto& path : {annsOwn, early})
        EXPECT_EQ(statusOf(path, account), 200) << path.data();
    EXPECT_EQ(statusOfMe(server, before.access), 401);
    EXPECT_EQ(postEncrypted(server, "/auth/oauth/token",
                            Json{{"grant_type", "refresh_token"}, {"refresh_token", before.refresh}})
                  .status,
              401);
    // The next user of this computer is a different user.
    const auto after = anonymous();
    EXPECT_TRUE(after.isNew);
    EXPECT_NE(after.id, before.id);
    EXPECT_EQ(statusOf(early, after.access), 404);
}

TEST_F(ServerMerge, AnIdAloneMovesNothing) {
    signIn("/auth/register", "", {});
    const auto victim = anonymous("victim");
    const auto other = anonymous("other");
    const auto recording = record(victim.access, "of-the-victim");
    const auto victimsRefresh = victim.refresh;
    const QByteArray proofs[] = {
        {}, "Authorization: Bearer nonsense\r\n", bearer(other.access), bearer(victimsRefresh)};
    for (const auto& proof : proofs) {
        const auto account = signIn("/auth/login", victim.id, proof);
        EXPECT_EQ(statusOf(recording, account), 404) << proof.data();
        EXPECT_EQ(statusOf(recording, victim.access), 200) << proof.data();
    }
    // Nor does a token without the id, or that of an account.
    const auto account = signIn("/auth/login", "", bearer(victim.access));
    EXPECT_EQ(statusOf(recording, victim.access), 200);
    const auto again = signIn("/auth/login", other.id, bearer(account));
    EXPECT_EQ(statusOfMe(server, account), 200);
    EXPECT_EQ(statusOfMe(server, again), 200);
}

TEST_F(ServerMerge, WhatIsUnderWayIsFinishedForTheAccount) {
    signIn("/auth/register", "", {});
    const auto before = anonymous();
    recogniser->hold();
    Form form;
    form.recordingId = "under-way";
    OpenRequest waiting(
        server, uploadRequest("/api/v1/transcription/diarize", QString::fromStdString(before.access), form.body()));
    ASSERT_TRUE(waitUntil([&] { return recogniser->opened == 1; }));
    const auto account = signIn("/auth/login", before.id, bearer(before.access));
    recogniser->release();
    EXPECT_EQ(waiting.answer().status, 200) << "who waited for it gets it";
    EXPECT_EQ(statusOf("/transcription/recording/under-way/diarization", account), 200);
}

TEST_F(ServerMerge, DeletingTheAccountLeavesNothingOfEither) {
    const auto before = anonymous();
    const auto account = signIn("/auth/register", before.id, bearer(before.access));
    record(account, "of-ann");
    recogniser->hold();
    OpenRequest waiting(server,
                        uploadRequest("/api/v1/transcription/file", QString::fromStdString(account), Form().body()));
    ASSERT_TRUE(waitUntil([&] { return recogniser->opened == 2; }));
    const auto unused = Browser(server).submit("/auth/login", annsForm).code();
    EXPECT_EQ(removeAccount(server, QString::fromStdString(account)).status, 200);
    recogniser->release();
    EXPECT_EQ(waiting.answer().status, 404);
    EXPECT_EQ(statusOfMe(server, account), 401);
    EXPECT_EQ(redeem(server, unused).status, 400) << "a code that was on its way";
    EXPECT_EQ(Browser(server).submit("/auth/login", annsForm).status, 401);
    EXPECT_EQ(spooledFiles(server), 0U);
    const auto anew = signIn("/auth/register", "", {});
    EXPECT_EQ(statusOf("/transcription/recording/of-ann/diarization", anew), 404);
}

} // namespace
