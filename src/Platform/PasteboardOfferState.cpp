#include "Platform/PasteboardOfferState.h"

#include "Concurrency/Executor.h"

#include <QTimer>

namespace quillo {

using std::chrono::steady_clock;

void PasteboardOfferState::wasRead(int64_t process) {
    const std::lock_guard lock(m_mutex);
    if (m_counted != 0 && process != 0 && process != m_counted)
        return;
    ++m_reads;
    m_lastRead = steady_clock::now();
    m_unknownReader = m_unknownReader || process == 0 || m_counted == 0;
    answer(true);
}

void PasteboardOfferState::lost() {
    const std::lock_guard lock(m_mutex);
    m_owner = false;
    answer(false);
}

AsyncStream<bool> PasteboardOfferState::outcome(std::chrono::milliseconds deadline) {
    auto [stream, sink] = AsyncStream<bool>::make(EventExecutor::main());
    const std::lock_guard lock(m_mutex);
    if (m_reads > 0 || !m_owner) {
        sink.yield(m_reads > 0);
    } else {
        m_waiting.push_back(sink);
        QTimer::singleShot(deadline, [sink = sink] { sink.yield(false); });
    }
    return std::move(stream);
}

int PasteboardOfferState::reads() const {
    const std::lock_guard lock(m_mutex);
    return m_reads;
}

bool PasteboardOfferState::isOwner() const {
    const std::lock_guard lock(m_mutex);
    return m_owner;
}

std::optional<steady_clock::time_point> PasteboardOfferState::lastRead() const {
    const std::lock_guard lock(m_mutex);
    return m_lastRead;
}

void PasteboardOfferState::countReadsOf(int64_t process) {
    const std::lock_guard lock(m_mutex);
    m_counted = process;
    m_reads = 0;
    m_lastRead.reset();
    m_unknownReader = false;
}

bool PasteboardOfferState::knowsReader() const {
    const std::lock_guard lock(m_mutex);
    return !m_unknownReader;
}

void PasteboardOfferState::answer(bool read) {
    for (const auto& sink : m_waiting)
        sink.yield(read);
    m_waiting.clear();
}

namespace {

Task<bool> awaitOutcome(std::shared_ptr<PasteboardOfferState> state, std::chrono::milliseconds deadline) {
    auto stream = state->outcome(deadline);
    const auto read = co_await stream.next();
    co_return read.value_or(false);
}

} // namespace

Task<bool> SharedPasteboardOffer::waitUntilRead(std::chrono::milliseconds deadline) {
    return awaitOutcome(m_state, deadline);
}

} // namespace quillo
