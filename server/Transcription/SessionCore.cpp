#include "Transcription/SessionCore.h"

#include "Transcription/EnergyVad.h"

#include <algorithm>
#include <system_error>

namespace quillo::server {

SessionCore::SessionCore(std::shared_ptr<RecognitionListener> listener, std::function<void()> wake)
    : wake_(std::move(wake)), listener_(std::move(listener)) {}

void SessionCore::push(std::span<const int16_t> samples) {
    {
        const std::scoped_lock lock(mutex_);
        if (finished_)
            return;
        pushed_.fetch_add(samples.size(), std::memory_order_relaxed);
        samples_.insert(samples_.end(), samples.begin(), samples.end());
    }
    changed_.notify_one();
    if (wake_)
        wake_();
}

void SessionCore::finish() {
    {
        const std::scoped_lock lock(mutex_);
        finished_ = true;
    }
    changed_.notify_one();
    if (wake_)
        wake_();
}

void SessionCore::abandon() {
    {
        const std::scoped_lock lock(mutex_);
        abandoned_.store(true, std::memory_order_release);
    }
    changed_.notify_one();
    if (wake_)
        wake_();
    const std::scoped_lock lock(listenerMutex_);
    listener_.reset();
}

SessionCore::Take SessionCore::take(std::vector<int16_t>& samples, size_t limit) {
    samples.clear();
    if (abandoned_.load(std::memory_order_acquire))
        return Take::abandoned;
    const size_t count = std::min(limit, samples_.size() - read_);
    if (count == 0)
        return finished_ ? Take::finished : Take::nothing;
    const auto first = samples_.begin() + static_cast<ptrdiff_t>(read_);
    samples.assign(first, first + static_cast<ptrdiff_t>(count));
    read_ += count;
    if (read_ == samples_.size()) {
        samples_.clear();
        read_ = 0;
    } else if (read_ > EnergyVad::sampleRate && read_ > samples_.size() / 2) {
        samples_.erase(samples_.begin(), samples_.begin() + static_cast<ptrdiff_t>(read_));
        read_ = 0;
    }
    return Take::audio;
}

SessionCore::Take SessionCore::wait(std::vector<int16_t>& samples, size_t limit) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return abandoned_ || finished_ || read_ < samples_.size(); });
    return take(samples, limit);
}

SessionCore::Take SessionCore::poll(std::vector<int16_t>& samples, size_t limit) {
    const std::scoped_lock lock(mutex_);
    return take(samples, limit);
}

double SessionCore::backlogSeconds() const {
    const uint64_t recognised = recognised_.load(std::memory_order_relaxed);
    const uint64_t pushed = pushed_.load(std::memory_order_relaxed);
    return pushed > recognised ? static_cast<double>(pushed - recognised) / EnergyVad::sampleRate : 0;
}

void SessionCore::tell(const std::function<void(RecognitionListener&)>& call) {
    const std::scoped_lock lock(listenerMutex_);
    if (const auto listener = listener_)
        call(*listener);
}

namespace {

class CoreSession final : public RecognitionSession {
public:
    explicit CoreSession(std::shared_ptr<SessionCore> core) : core_(std::move(core)) {}
    CoreSession(const CoreSession&) = delete;
    CoreSession& operator=(const CoreSession&) = delete;
    ~CoreSession() override { core_->abandon(); }

    void push(std::span<const int16_t> samples) override { core_->push(samples); }
    void finish() override { core_->finish(); }
    [[nodiscard]] double backlogSeconds() const override { return core_->backlogSeconds(); }

private:
    std::shared_ptr<SessionCore> core_;
};

} // namespace

std::unique_ptr<RecognitionSession> makeSession(std::shared_ptr<SessionCore> core) {
    return std::make_unique<CoreSession>(std::move(core));
}

WorkerGroup::~WorkerGroup() {
    std::vector<std::shared_ptr<SessionCore>> running;
    {
        const std::scoped_lock lock(mutex_);
        for (const Worker& worker : workers_)
            if (worker.core)
                running.push_back(worker.core);
    }
    for (const auto& core : running)
        core->abandon();
    for (Worker& worker : workers_)
        worker.thread.join();
}

void WorkerGroup::start(std::shared_ptr<SessionCore> core, std::function<void()> work) {
    std::list<Worker> ended;
    const std::scoped_lock lock(mutex_);
    for (auto worker = workers_.begin(); worker != workers_.end();) {
        const auto next = std::next(worker);
        if (worker->done)
            ended.splice(ended.end(), workers_, worker);
        worker = next;
    }
    for (Worker& worker : ended)
        worker.thread.join();
    workers_.push_back({{}, std::move(core), false});
    Worker& worker = workers_.back();
    try {
        worker.thread = std::thread([this, &worker, work = std::move(work)]() mutable {
            work();
            work = {};
            const std::scoped_lock done(mutex_);
            worker.core.reset();
            worker.done = true;
        });
    } catch (const std::system_error& error) {
        workers_.pop_back();
        throw RecogniserUnavailable(std::string("No thread could be started for the recognition (") + error.what() +
                                    "): raise the limit on processes or serve fewer sessions");
    }
}

} // namespace quillo::server
