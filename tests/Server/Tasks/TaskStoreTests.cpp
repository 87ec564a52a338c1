#include "Foundation/Files.h"
#include "Tasks/TaskStore.h"

#include <gmock/gmock.h>

#include <stdlib.h>

using namespace quillo::server;
using std::chrono::hours;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class TaskStoreTest : public testing::Test {
protected:
    TaskStoreTest() {
        std::string name = (std::filesystem::temp_directory_path() / "tasks-XXXXXX").string();
        folder = ::mkdtemp(name.data());
        store.emplace(folder / "tasks.sqlite", [this] { return now; });
    }
    ~TaskStoreTest() override { std::filesystem::remove_all(folder); }

    void keepLive(const char* user, const char* text) {
        LiveTranscript live;
        live.userId = user;
        live.recordingId = "r";
        live.id = live.text = text;
        store->keepLive(live);
    }
    Task add(const char* user, const char* file) {
        TaskRequest request;
        request.userId = user;
        request.audioFile = file;
        request.recordingId = "r";
        return store->add(request).value();
    }

    std::filesystem::path folder;
    std::chrono::system_clock::time_point now{hours(1000)};
    std::optional<TaskStore> store;
};

TEST_F(TaskStoreTest, ForgetsResultsAndGivesUpOldWork) {
    const auto waiting = add("u", "waiting");
    const auto running = add("u", "running");
    const auto done = add("u", "done");
    store->begin(running.id);
    store->complete(done.id, "{}");
    now += hours(3);
    const auto young = add("u", "young");
    EXPECT_THAT(store->expire(hours(10), hours(2)), ElementsAre("waiting"));
    EXPECT_EQ(store->find("u", waiting.id)->errorCode, "EXPIRED");
    EXPECT_EQ(store->find("u", running.id)->status, TaskStatus::running);
    EXPECT_EQ(store->find("u", young.id)->status, TaskStatus::queued);
    EXPECT_TRUE(store->find("u", done.id));
    now += hours(8);
    EXPECT_THAT(store->expire(hours(10), hours(100)), IsEmpty());
    EXPECT_FALSE(store->find("u", done.id));
    EXPECT_TRUE(store->find("u", waiting.id)); // it failed later
    EXPECT_EQ(store->unfinishedOf("u"), 2);
}

TEST_F(TaskStoreTest, KeepsUsersApartAndRemovesAllOfOne) {
    const auto mine = add("u", "mine");
    const auto other = add("v", "other");
    keepLive("u", "words");
    EXPECT_FALSE(store->find("v", mine.id));
    EXPECT_FALSE(store->findLive("v", "r"));
    EXPECT_EQ(store->findLive("u", "r")->text, "words");
    EXPECT_THAT(store->removeUser("u"), ElementsAre("mine"));
    EXPECT_FALSE(store->find("u", mine.id));
    EXPECT_FALSE(store->findLive("u", "r"));
    EXPECT_TRUE(store->find("v", other.id));
}

TEST_F(TaskStoreTest, AudioThatEndedThisVersionIsTriedByTheNext) {
    const auto task = add("u", "a");
    store->fail(task.id, 422, "RECOGNITION_CRASHED", "no");
    EXPECT_TRUE(store->crashed(task.request));
    store.emplace(
        folder / "tasks.sqlite", [this] { return now; }, "999");
    EXPECT_FALSE(store->crashed(task.request));
}

TEST_F(TaskStoreTest, CountsAttemptsThatWereTheTasksFault) {
    const auto task = add("u", "a");
    store->begin(task.id);
    store->requeue(task.id, true);
    EXPECT_EQ(store->find("u", task.id)->attempts, 0);
    store->begin(task.id);
    store.emplace(folder / "tasks.sqlite", [this] { return now; }); // the server was killed
    const auto left = store->unfinished();
    ASSERT_EQ(left.size(), 1U);
    EXPECT_EQ(left.front().attempts, 1);
    EXPECT_EQ(left.front().request.audioFile, "a");
}

TEST_F(TaskStoreTest, WhatIsBegunForAUserWhoWasMovedBelongsToTheSuccessor) {
    const auto early = add("anonymous", "early");
    const auto own = add("account", "own");
    keepLive("anonymous", "theirs");
    keepLive("account", "own");
    EXPECT_THAT(store->moveUser("anonymous", "account"), IsEmpty());
    EXPECT_EQ(store->findLive("account", "r")->text, "own") << "what both have, the account keeps";
    const auto late = add("anonymous", "late");
    keepLive("anonymous", "late");
    EXPECT_EQ(store->findLive("account", "r")->text, "late");
    for (const auto& task : {early, own, late}) {
        EXPECT_EQ(store->find("account", task.id)->request.userId, "account");
        EXPECT_TRUE(store->find("anonymous", task.id)) << "who still asks under the old id";
    }
    EXPECT_EQ(store->unfinishedOf("anonymous"), 3);

    EXPECT_THAT(store->removeUser("account"), testing::UnorderedElementsAre("early", "own", "late"));
    for (const char* user : {"account", "anonymous"}) {
        TaskRequest request;
        request.userId = user;
        EXPECT_FALSE(store->add(request)) << user;
        keepLive(user, "after the end");
        EXPECT_FALSE(store->findLive(user, "r")) << user;
    }
    add("another", "stray");
    EXPECT_THAT(store->moveUser("another", "account"), ElementsAre("stray")) << "nobody is left to have it";
}

TEST_F(TaskStoreTest, KeepsWhatVersionOneHeld) {
    const auto file = folder / "old.sqlite";
    const auto dump = readFile(std::filesystem::path(QUILLO_FIXTURES) / "version1.sql");
    ASSERT_TRUE(dump);
    Database(file, {}).execute(*dump);
    const std::string user = "6c336efe-3374-4f58-b149-bacf740006e6";
    TaskStore migrated(file, [this] { return now; });
    const auto task = migrated.findDiarization(user, "old-recording");
    ASSERT_TRUE(task);
    EXPECT_EQ(task->status, TaskStatus::completed);
    EXPECT_NE(task->result.find("the quick brown"), std::string::npos);
    migrated.moveUser(user, "account");
    EXPECT_TRUE(migrated.find("account", task->id));
}

} // namespace
