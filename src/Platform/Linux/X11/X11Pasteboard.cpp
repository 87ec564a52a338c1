#include "Platform/Linux/X11/X11Pasteboard.h"

#include "Concurrency/AsyncStream.h"
#include "Core/Log.h"
#include "Platform/Linux/X11/SelectionOwner.h"
#include "Platform/Linux/X11/SelectionReader.h"
#include "Platform/Linux/X11/SelectionWatch.h"
#include "Platform/PasteboardOfferState.h"

#include <QSocketNotifier>

#include <atomic>

namespace quillo {

namespace {

using std::chrono::steady_clock;

// The clipboard may contain a film; a copy of it is not worth more memory than this.
constexpr qsizetype mostSaved = 64LL * 1024 * 1024;

/// Lives on the worker thread from `start` to `finish`.
class SelectionWorker {
public:
    explicit SelectionWorker(std::unique_ptr<XcbConnection> connection)
        : m_connection(std::move(connection)), m_window(makeWindow(*m_connection)),
          m_owner(
              *m_connection, m_window, [this](xcb_atom_t, int64_t process) { wasRead(process); },
              [this](xcb_atom_t selection) { wasLost(selection); }),
          m_reader(
              *m_connection, m_window, [this](const xcb_generic_event_t& event) { m_owner.handle(event); },
              [this] { return m_jobsThatHurry > 0; }),
          m_clipboard(m_connection->atom("CLIPBOARD")) {}

    void start() {
        m_notifier = std::make_unique<QSocketNotifier>(m_connection->descriptor(), QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(), [this] { handleEvents(); });
        handleEvents();
    }

    void finish() { m_notifier.reset(); }

    [[nodiscard]] bool isBroken() const { return m_broken; }

    /// Ends a reading, which may last, for a job that is about to follow it. Any thread.
    void hurry() { ++m_jobsThatHurry; }
    void hasHurried() { --m_jobsThatHurry; }

    PasteboardContents read(steady_clock::time_point deadline) {
        PasteboardContents contents;
        if (const auto* own = m_owner.held(m_clipboard)) {
            contents.formats = *own;
        } else {
            auto result = m_reader.readAll(m_clipboard, mostSaved, deadline);
            contents.formats = std::move(result.formats);
            contents.complete = result.complete;
        }
        handleEvents();
        return contents;
    }

    void offer(const QString& text, bool alsoPrimary, ClipboardUse use, std::shared_ptr<PasteboardOfferState> state) {
        replaceOffer(std::move(state));
        const auto formats = textFormats(text, use == ClipboardUse::passing);
        const xcb_timestamp_t time = m_reader.serverTime();
        if (!m_owner.own(m_clipboard, formats, time))
            replaceOffer(nullptr);
        if (alsoPrimary)
            m_owner.own(XCB_ATOM_PRIMARY, formats, time);
        handleEvents();
    }

    bool restore(const PasteboardContents& contents, const std::shared_ptr<PasteboardOfferState>& offered) {
        handleEvents(); // Take into account a loss of ownership that has been announced.
        if (!offered || m_offer != offered || m_owner.held(m_clipboard) == nullptr)
            return false;
        m_owner.disown(XCB_ATOM_PRIMARY);
        replaceOffer(nullptr);
        bool restored = true;
        if (contents.isEmpty())
            m_owner.disown(m_clipboard);
        else
            restored = m_owner.own(m_clipboard, contents.formats, m_reader.serverTime());
        handleEvents();
        return restored;
    }

private:
    static xcb_window_t makeWindow(const XcbConnection& connection) {
        const xcb_window_t window = xcb_generate_id(connection.get());
        const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(connection.get(), 0, window, connection.root(), -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                          XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
        return window;
    }

    void handleEvents() {
        while (const auto event = m_connection->poll())
            m_owner.handle(*event);
        m_connection->flush();
        if (m_connection->isBroken() && !m_broken.exchange(true)) {
            if (m_notifier)
                m_notifier->setEnabled(false);
            replaceOffer(nullptr);
            appLog(QStringLiteral("❌ The connection to the X server broke; the clipboard is not available"),
                   LogLevel::error, QStringLiteral("Pasteboard"));
        }
    }

    void replaceOffer(std::shared_ptr<PasteboardOfferState> next) {
        if (m_offer)
            m_offer->lost();
        m_offer = std::move(next);
    }

    void wasRead(int64_t process) {
        if (m_offer)
            m_offer->wasRead(process);
    }

    void wasLost(xcb_atom_t selection) {
        if (selection == m_clipboard)
            replaceOffer(nullptr);
    }

    std::unique_ptr<XcbConnection> m_connection;
    xcb_window_t m_window;
    SelectionOwner m_owner;
    SelectionReader m_reader;
    xcb_atom_t m_clipboard;
    std::shared_ptr<PasteboardOfferState> m_offer;
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::atomic<bool> m_broken = false;
    std::atomic<int> m_jobsThatHurry = 0; ///< posted, and not begun
};

/// Runs `job` on the worker's thread and returns its result.
template <class Result>
Task<Result> runOn(SerialExecutor& executor, std::function<Result()> job) {
    auto [stream, sink] = AsyncStream<Result>::make(EventExecutor::main());
    executor.post([job = std::move(job), sink = sink] { sink.yield(job()); });
    auto result = co_await stream.next();
    co_return std::move(*result);
}

class X11Pasteboard final : public Pasteboard {
public:
    explicit X11Pasteboard(std::unique_ptr<XcbConnection> connection)
        : m_worker(std::make_shared<SelectionWorker>(std::move(connection))) {
        m_executor.post([worker = m_worker] { worker->start(); });
    }
    ~X11Pasteboard() override {
        m_worker->hurry();
        m_executor.post([worker = m_worker] { worker->finish(); });
    }
    X11Pasteboard(const X11Pasteboard&) = delete;
    X11Pasteboard& operator=(const X11Pasteboard&) = delete;

    [[nodiscard]] bool isAvailable() const override { return !m_worker->isBroken(); }

    [[nodiscard]] std::optional<uint64_t> changeCount() const override { return m_watch->count(); }

    Task<PasteboardContents> read(std::chrono::milliseconds deadline) override {
        // Measure the time from the call, not from the start of the job.
        return runOn<PasteboardContents>(
            m_executor, [worker = m_worker, until = steady_clock::now() + deadline] { return worker->read(until); });
    }

    Task<std::shared_ptr<PasteboardOffer>> offerText(QString text, bool alsoPrimary, ClipboardUse use) override {
        m_worker->hurry();
        return runOn<std::shared_ptr<PasteboardOffer>>(
            m_executor,
            [worker = m_worker, text = std::move(text), alsoPrimary, use]() -> std::shared_ptr<PasteboardOffer> {
                worker->hasHurried();
                auto state = std::make_shared<PasteboardOfferState>();
                worker->offer(text, alsoPrimary, use, state);
                return std::make_shared<SharedPasteboardOffer>(std::move(state));
            });
    }

    Task<bool> restore(PasteboardContents contents, std::shared_ptr<PasteboardOffer> offer) override {
        const auto ours = std::dynamic_pointer_cast<SharedPasteboardOffer>(offer);
        return runOn<bool>(m_executor,
                           [worker = m_worker, contents = std::move(contents), state = ours ? ours->state() : nullptr] {
                               return worker->restore(contents, state);
                           });
    }

private:
    std::shared_ptr<SelectionWorker> m_worker;
    std::unique_ptr<SelectionWatch> m_watch = std::make_unique<SelectionWatch>("CLIPBOARD");
    SerialExecutor m_executor{QStringLiteral("quillo-clipboard")}; ///< destroyed first: its last job uses the worker
};

} // namespace

std::unique_ptr<Pasteboard> createX11Pasteboard() {
    auto connection = XcbConnection::open(QStringLiteral("the clipboard"));
    if (!connection)
        return nullptr;
    return std::make_unique<X11Pasteboard>(std::move(connection));
}

} // namespace quillo
