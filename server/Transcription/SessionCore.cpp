#include "Transcription/SessionCore.h"

#include "Transcription/EnergyVad.h"

#include <algorithm>
#include <system_error>

namespace quillo::server {

SessionCore::SessionCore(std::shared_ptr<RecognitionListener> listener, std::function<void()> wake)
    : m_wake(std::move(wake)), m_listener(std::move(listener)) {}

void SessionCore::push(std::span<const int16_t> samples) {
    {
        const std::scoped_lock lock(m_mutex);
        if (m_finished)
            return;
        m_pushed.fetch_add(samples.size(), std::memory_order_relaxed);
        m_samples.insert(m_samples.end(), samples.begin(), samples.end());
    }
    m_changed.notify_one();
    if (m_wake)
        m_wake();
}

void SessionCore::finish() {
    {
        const std::scoped_lock lock(m_mutex);
        m_finished = true;
    }
    m_changed.notify_one();
    if (m_wake)
        m_wake();
}

void SessionCore::abandon() {
    {
        const std::scoped_lock lock(m_mutex);
        m_abandoned.store(true, std::memory_order_release);
    }
    m_changed.notify_one();
    if (m_wake)
        m_wake();
    const std::scoped_lock lock(m_listenerMutex);
    m_listener.reset();
}

SessionCore::Take SessionCore::take(std::vector<int16_t>& samples, size_t limit) {
    samples.clear();
    if (m_abandoned.load(std::memory_order_acquire))
        return Take::abandoned;
    const size_t count = std::min(limit, m_samples.size() - m_read);
    if (count == 0)
        return m_finished ? Take::finished : Take::nothing;
    const auto first = m_samples.begin() + static_cast<ptrdiff_t>(m_read);
    samples.assign(first, first + static_cast<ptrdiff_t>(count));
    m_read += count;
    if (m_read == m_samples.size()) {
        m_samples.clear();
        m_read = 0;
    } else if (m_read > EnergyVad::sampleRate && m_read > m_samples.size() / 2) {
        m_samples.erase(m_samples.begin(), m_samples.begin() + static_cast<ptrdiff_t>(m_read));
        m_read = 0;
    }
    return Take::audio;
}

SessionCore::Take SessionCore::wait(std::vector<int16_t>& samples, size_t limit) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_abandoned || m_finished || m_read < m_samples.size(); });
    return take(samples, limit);
}

SessionCore::Take SessionCore::poll(std::vector<int16_t>& samples, size_t limit) {
    const std::scoped_lock lock(m_mutex);
    return take(samples, limit);
}

double SessionCore::backlogSeconds() const {
    const uint64_t recognised = m_recognised.load(std::memory_order_relaxed);
    const uint64_t pushed = m_pushed.load(std::memory_order_relaxed);
    return pushed > recognised ? static_cast<double>(pushed - recognised) / EnergyVad::sampleRate : 0;
}

void SessionCore::tell(const std::function<void(RecognitionListener&)>& call) {
    const std::scoped_lock lock(m_listenerMutex);
    if (const auto listener = m_listener)
        call(*listener);
}

namespace {

class CoreSession final : public RecognitionSession {
public:
    explicit CoreSession(std::shared_ptr<SessionCore> core) : m_core(std::move(core)) {}
    CoreSession(const CoreSession&) = delete;
    CoreSession& operator=(const CoreSession&) = delete;
    ~CoreSession() override { m_core->abandon(); }

    void push(std::span<const int16_t> samples) override { m_core->push(samples); }
    void finish() override { m_core->finish(); }
    [[nodiscard]] double backlogSeconds() const override { return m_core->backlogSeconds(); }

private:
    std::shared_ptr<SessionCore> m_core;
};

} // namespace

std::unique_ptr<RecognitionSession> makeSession(std::shared_ptr<SessionCore> core) {
    return std::make_unique<CoreSession>(std::move(core));
}

WorkerGroup::~WorkerGroup() {
    std::vector<std::shared_ptr<SessionCore>> running;
    {
        const std::scoped_lock lock(m_mutex);
        for (const Worker& worker : m_workers)
            if (worker.core)
                running.push_back(worker.core);
    }
    for (const auto& core : running)
        core->abandon();
    for (Worker& worker : m_workers)
        worker.thread.join();
}

void WorkerGroup::start(std::shared_ptr<SessionCore> core, std::function<void()> work) {
    std::list<Worker> ended;
    const std::scoped_lock lock(m_mutex);
    for (auto worker = m_workers.begin(); worker != m_workers.end();) {
        const auto next = std::next(worker);
        if (worker->done)
            ended.splice(ended.end(), m_workers, worker);
        worker = next;
    }
    for (Worker& worker : ended)
        worker.thread.join();
    m_workers.push_back({{}, std::move(core), false});
    Worker& worker = m_workers.back();
    try {
        worker.thread = std::thread([this, &worker, work = std::move(work)]() mutable {
            work();
            work = {};
            const std::scoped_lock done(m_mutex);
            worker.core.reset();
            worker.done = true;
        });
    } catch (const std::system_error& error) {
        m_workers.pop_back();
        throw RecogniserUnavailable(std::string("No thread could be started for the recognition (") + error.what() +
                                    "): raise the limit on processes or serve fewer sessions");
    }
}

} // namespace quillo::server
