#include "Concurrency/Executor.h"

#include <QCoreApplication>

#include <latch>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace quillo {

namespace {

int makeDescriptor() {
    const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    return descriptor;
}

} // namespace

EventExecutor::EventExecutor() : m_descriptor(makeDescriptor()), m_notifier(m_descriptor, QSocketNotifier::Read) {
    connect(&m_notifier, &QSocketNotifier::activated, this, [this] { runQueued(); });
}

EventExecutor::~EventExecutor() {
    m_notifier.setEnabled(false);
    ::close(m_descriptor);
}

void EventExecutor::post(Work work) {
    bool wake = false;
    {
        const std::lock_guard lock(m_mutex);
        m_queue.push_back(std::move(work));
        wake = !std::exchange(m_awake, true);
    }
    if (wake) {
        const uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(m_descriptor, &one, sizeof one);
    }
}

bool EventExecutor::takeQueued(std::deque<Work>& taken) {
    const std::lock_guard lock(m_mutex);
    taken.swap(m_queue);
    return !taken.empty();
}

void EventExecutor::runQueued() {
    uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(m_descriptor, &count, sizeof count);
    std::deque<Work> batch;
    {
        const std::lock_guard lock(m_mutex);
        m_awake = false;
        batch.swap(m_queue);
    }
    // Run one batch per turn of the event loop, so that a chain of posts cannot starve timers and input.
    for (auto& work : batch)
        work();
}

void EventExecutor::drain() {
    std::deque<Work> batch;
    while (takeQueued(batch)) {
        for (auto& work : batch)
            work();
        batch.clear();
    }
}

EventExecutor& EventExecutor::main() {
    static auto* const executor = new EventExecutor;
    return *executor;
}

SerialExecutor::SerialExecutor(const QString& name) {
    m_thread.setObjectName(name);
    std::latch ready(1);
    // Create the executor on its own thread, before that thread enters its event loop.
    QObject::connect(
        &m_thread, &QThread::started, &m_thread,
        [this, &ready] {
            m_inner = std::make_unique<EventExecutor>();
            ready.count_down();
        },
        Qt::DirectConnection);
    QObject::connect(
        &m_thread, &QThread::finished, &m_thread,
        [this] {
            m_inner->drain();
            m_inner.reset();
        },
        Qt::DirectConnection);
    m_thread.start();
    ready.wait();
}

SerialExecutor::~SerialExecutor() {
    // The thread sanitizer cannot see QThread's wait; the latch shows it that the thread's work is done. For the same
    // reason the connection is made on that thread.
    std::latch finished(1);
    runBlocking([this, &finished] {
        QObject::connect(
            &m_thread, &QThread::finished, &m_thread, [&finished] { finished.count_down(); }, Qt::DirectConnection);
    });
    m_thread.quit();
    finished.wait();
    m_thread.wait();
}

void SerialExecutor::post(Work work) { m_inner->post(std::move(work)); }

void SerialExecutor::runBlocking(const Work& work) {
    std::latch done(1);
    post([&] {
        work();
        done.count_down();
    });
    done.wait();
}

} // namespace quillo
