#pragma once

#include "Concurrency/AsyncEvent.h"
#include "Platform/Pasteboard.h"

#include <vector>

namespace quillo::test {

/// A text on a `MockPasteboard`; the test reads it instead of the target.
class MockPasteboardOffer final : public PasteboardOffer {
public:
    MockPasteboardOffer(Clock& clock, QString offered, bool primary)
        : text(std::move(offered)), onPrimary(primary), m_clock(clock) {}

    const QString text;
    const bool onPrimary;
    bool owned = true;

    /// A process fetches the text; by default the target of `MockApplications`. 0 stands for one that is not revealed.
    void read(int64_t process = 4711) {
        if (m_counted != 0 && process != 0 && process != m_counted)
            return;
        ++m_reads;
        m_unknown = m_unknown || process == 0;
        m_lastRead = std::chrono::steady_clock::now();
        m_read.set();
    }

    [[nodiscard]] int reads() const override { return m_reads; }
    [[nodiscard]] bool isOwner() const override { return owned; }
    void countReadsOf(int64_t process) override {
        m_counted = process;
        m_reads = 0;
        m_read = AsyncEvent();
    }
    [[nodiscard]] bool knowsReader() const override { return !m_unknown && m_counted != 0; }
    Task<bool> waitUntilRead(std::chrono::milliseconds deadline) override { return m_read.wait(m_clock, deadline); }
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> lastRead() const override { return m_lastRead; }

private:
    Clock& m_clock;
    AsyncEvent m_read;
    int m_reads = 0;
    int64_t m_counted = 0;
    bool m_unknown = false;
    std::optional<std::chrono::steady_clock::time_point> m_lastRead;
};

/// A clipboard in memory.
class MockPasteboard final : public Pasteboard {
public:
    explicit MockPasteboard(Clock& clock) : m_clock(clock) {}

    bool available = true;
    bool tellsChanges = false;
    std::chrono::milliseconds readDelay{0};
    PasteboardContents contents;
    std::vector<std::shared_ptr<MockPasteboardOffer>> offers;
    std::vector<PasteboardContents> restored;
    int readCount = 0;

    /// Another application puts `text` there.
    void copy(const QString& text) {
        takeOver();
        contents.formats = {{u"UTF8_STRING"_qs, text.toUtf8()}};
    }
    [[nodiscard]] QString text() const {
        return QString::fromUtf8(contents.formats.contains(u"UTF8_STRING"_qs) ? contents.formats.at(u"UTF8_STRING"_qs)
                                                                              : QByteArray());
    }

    [[nodiscard]] bool isAvailable() const override { return available; }
    [[nodiscard]] std::optional<uint64_t> changeCount() const override {
        return tellsChanges ? std::optional(m_changes) : std::nullopt;
    }
    Task<PasteboardContents> read(std::chrono::milliseconds deadline) override {
        ++readCount;
        if (readDelay > deadline) {
            co_await m_clock.sleep(deadline);
            co_return PasteboardContents{.formats = {}, .complete = false};
        }
        if (readDelay.count() > 0)
            co_await m_clock.sleep(readDelay);
        co_return PasteboardContents(contents); // a copy: a member that is named alone would be moved from
    }
    Task<std::shared_ptr<PasteboardOffer>> offerText(QString text, bool alsoPrimary, ClipboardUse) override {
        copy(text);
        auto offer = std::make_shared<MockPasteboardOffer>(m_clock, text, alsoPrimary);
        offers.push_back(offer);
        co_return offer;
    }
    Task<bool> restore(PasteboardContents previous, std::shared_ptr<PasteboardOffer> offer) override {
        if (!offer->isOwner())
            co_return false;
        takeOver();
        contents = previous;
        restored.push_back(std::move(previous));
        co_return true;
    }

private:
    void takeOver() {
        ++m_changes;
        for (const auto& offer : offers)
            offer->owned = false;
    }

    Clock& m_clock;
    uint64_t m_changes = 1;
};

} // namespace quillo::test
