#pragma once

#include "Platform/Pasteboard.h"

#include "Concurrency/AsyncStream.h"

#include <mutex>
#include <vector>

namespace quillo {

/// The state of a text on the clipboard, shared by its offer on the main thread and the adapter's thread that serves
/// it. Any thread.
class PasteboardOfferState {
public:
    /// A reader has received the text. `process` is its id, or 0 where the desktop does not reveal it.
    void wasRead(int64_t process);
    /// Another client owns the clipboard now.
    void lost();

    /// A stream whose first element says whether the text was read. Main thread.
    AsyncStream<bool> outcome(std::chrono::milliseconds deadline);

    [[nodiscard]] int reads() const;
    [[nodiscard]] bool isOwner() const;
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> lastRead() const;
    /// See `PasteboardOffer`.
    void countReadsOf(int64_t process);
    [[nodiscard]] bool knowsReader() const;

private:
    void answer(bool read);

    mutable std::mutex m_mutex;
    int m_reads = 0;
    bool m_owner = true;
    std::optional<std::chrono::steady_clock::time_point> m_lastRead;
    int64_t m_counted = 0; ///< the process whose reads count; 0 for all
    bool m_unknownReader = false;
    std::vector<AsyncStream<bool>::Sink> m_waiting;
};

/// Makes an offer over this state.
class SharedPasteboardOffer final : public PasteboardOffer {
public:
    explicit SharedPasteboardOffer(std::shared_ptr<PasteboardOfferState> state) : m_state(std::move(state)) {}
    [[nodiscard]] int reads() const override { return m_state->reads(); }
    [[nodiscard]] bool isOwner() const override { return m_state->isOwner(); }
    Task<bool> waitUntilRead(std::chrono::milliseconds deadline) override;
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> lastRead() const override {
        return m_state->lastRead();
    }
    void countReadsOf(int64_t process) override { m_state->countReadsOf(process); }
    [[nodiscard]] bool knowsReader() const override { return m_state->knowsReader(); }
    [[nodiscard]] const std::shared_ptr<PasteboardOfferState>& state() const { return m_state; }

private:
    std::shared_ptr<PasteboardOfferState> m_state;
};

} // namespace quillo
