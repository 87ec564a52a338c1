#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QThread>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace quillo {

/// A place where work runs: one thread, first in, first out.
class Executor {
public:
    using Work = std::function<void()>;

    virtual ~Executor() = default;

    /// Queues `work`. Callable from any thread; never runs it inline. Work posted after the executor's thread has ended
    /// is dropped.
    virtual void post(Work work) = 0;
};

/// An executor of the thread that constructs it, driven by that thread's Qt event loop.
///
/// It wakes the loop through an event descriptor, not a queued Qt event: only the mutex and the descriptor are shared
/// between threads, and the thread sanitizer understands both.
class EventExecutor final : public QObject, public Executor {
public:
    EventExecutor();
    ~EventExecutor() override;

    void post(Work work) override;

    /// Runs all queued work, including work that it queues, until the queue is empty. Own thread only.
    void drain();

    /// The executor of the Qt main thread, created on first use there and never destroyed, because streams may outlive
    /// `main`.
    static EventExecutor& main();

private:
    void runQueued();
    bool takeQueued(std::deque<Work>& taken);

    int m_descriptor;
    QSocketNotifier m_notifier;
    std::mutex m_mutex;
    std::deque<Work> m_queue;
    bool m_awake = false;
};

/// One named thread with a Qt event loop and a queue: the serial context of a service.
///
/// The destructor runs what is still queued, then ends and joins the thread.
class SerialExecutor final : public Executor {
public:
    explicit SerialExecutor(const QString& name);
    ~SerialExecutor() override;

    void post(Work work) override;

    /// Runs `work` on the executor's thread and returns when it is done. Must not be called from that thread.
    void runBlocking(const Work& work);

    QThread* thread() { return &m_thread; }
    [[nodiscard]] bool isCurrent() const { return QThread::currentThread() == &m_thread; }

private:
    QThread m_thread;
    std::unique_ptr<EventExecutor> m_inner;
};

} // namespace quillo
