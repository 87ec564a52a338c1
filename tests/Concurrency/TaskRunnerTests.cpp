#include "Concurrency/Clock.h"
#include "Concurrency/TaskRunner.h"
#include "Support/Async.h"

#include <set>

using namespace quillo;
using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

TEST(TaskRunner, ReportsWhatEscapesATask) {
    QStringList reports;
    TaskRunner runner([&](const QString& name, const QString& error) { reports << name << error; });
    ManualClock clock(EventExecutor::main());
    const auto handle = runner.run(u"upload"_qs, [&clock](std::stop_token) -> Task<> {
        co_await clock.sleep(1s);
        throw std::runtime_error("no route");
    });
    EXPECT_TRUE(handle.isRunning());
    clock.advance(1s);
    EXPECT_FALSE(handle.isRunning());
    EXPECT_EQ(reports, (QStringList{u"upload"_qs, u"no route"_qs}));
    EXPECT_EQ(runner.running(), 0U);
}

TEST(TaskRunner, KeepsCapturesAliveAndStopsWhatIsLeftWhenItGoes) {
    ManualClock clock(EventExecutor::main());
    auto ended = std::make_shared<int>(0);
    {
        TaskRunner runner([](const QString&, const QString&) {});
        runner.run(u"watch"_qs, [&clock, ended, text = QString(1000, u'x')](std::stop_token token) -> Task<> {
            co_await clock.sleep(1h, token);
            *ended = static_cast<int>(text.size());
        });
        EXPECT_EQ(*ended, 0);
    }
    clock.advance(0s);
    EXPECT_EQ(*ended, 1000);
}

TEST(SerialExecutor, RunsInOrderOnOneThreadAndFinishesWhatIsQueued) {
    std::vector<int> order;
    std::set<Qt::HANDLE> threads;
    {
        SerialExecutor executor(u"test.serial"_qs);
        for (int i = 0; i < 1000; ++i)
            executor.post([&, i] {
                order.push_back(i);
                threads.insert(QThread::currentThreadId());
            });
    }
    EXPECT_EQ(order.size(), 1000U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(threads.size(), 1U);
    EXPECT_FALSE(threads.contains(QThread::currentThreadId()));
}

} // namespace
