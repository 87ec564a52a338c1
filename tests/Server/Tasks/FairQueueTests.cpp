#include "Tasks/FairQueue.h"

#include <gtest/gtest.h>

using quillo::server::FairQueue;

namespace {

std::string take(FairQueue& queue) {
    const auto item = queue.pop();
    return item ? item->id : "";
}

TEST(FairQueue, NobodyWaitsForThePileOfAnother) {
    FairQueue queue;
    for (const char* id : {"a1", "a2", "a3", "a4"})
        queue.push({"a", id});
    EXPECT_EQ(take(queue), "a1");
    queue.push({"b", "b1"});
    queue.push({"c", "c1"});
    queue.push({"b", "b2"});
    // Those who have nothing running come first, then everybody in turn.
    EXPECT_EQ(take(queue), "b1");
    EXPECT_EQ(take(queue), "c1");
    queue.done("b");
    EXPECT_EQ(take(queue), "b2");
    queue.done("a");
    EXPECT_EQ(take(queue), "a2");
    queue.pushFront({"a", "a2"}); // it could not be done yet
    queue.done("a");
    EXPECT_EQ(take(queue), "a2");
    queue.remove("a");
    EXPECT_EQ(take(queue), "");
    EXPECT_TRUE(queue.empty());
    queue.done("a");
    queue.done("a"); // of a user that is not known any more
    queue.push({"a", "a5"});
    EXPECT_EQ(take(queue), "a5");
}

} // namespace
