#include "Platform/Linux/Wayland/DataControlPasteboard.h"

#include "Concurrency/Executor.h"
#include "Concurrency/Perform.h"
#include "Core/Log.h"
#include "Platform/Linux/Wayland/DataControl.h"
#include "Platform/PasteboardOfferState.h"

#include <atomic>
#include <csignal>

namespace quillo {

namespace {

using std::chrono::steady_clock;
using Selection = DataControl::Selection;

// The clipboard may contain a film; a copy of it is not worth more memory than this.
constexpr qsizetype mostSaved = 64LL * 1024 * 1024;
/// A compositor that needs longer to set the clipboard is stuck.
constexpr auto compositorLimit = std::chrono::seconds(1);

/// The names of plain text; the last two are for X11 programs, which see the clipboard through a bridge.
DataSource::Formats textFormats(const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    DataSource::Formats formats;
    for (const auto& name : {QStringLiteral("text/plain;charset=utf-8"), QStringLiteral("text/plain"),
                             QStringLiteral("UTF8_STRING"), QStringLiteral("TEXT")})
        formats.emplace(name, utf8);
    return formats;
}

/// Lives on the worker thread from `start` to `finish`.
class ClipboardWorker {
public:
    explicit ClipboardWorker(std::unique_ptr<DataControl> control)
        : m_control(std::move(control)), m_changes(m_control->changeCount()) {}

    void start() {
        // A reader that hangs up early must not kill the program.
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        m_notifier = std::make_unique<QSocketNotifier>(m_control->descriptor(), QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(), [this] { handleEvents(); });
        handleEvents();
    }

    void finish() {
        m_notifier.reset();
        // Destroy it here, because its timers belong to this thread.
        m_control.reset();
    }

    [[nodiscard]] bool isBroken() const { return m_broken; }
    [[nodiscard]] uint64_t changeCount() const { return m_changes; }

    PasteboardContents read(steady_clock::time_point deadline) {
        auto result = m_control->readClipboard(mostSaved, deadline);
        handleEvents();
        return {std::move(result.formats), result.complete};
    }

    std::shared_ptr<PasteboardOffer> offer(const QString& text, bool alsoPrimary) {
        auto state = std::make_shared<PasteboardOfferState>();
        const auto formats = textFormats(text);
        const auto wasRead = [weak = std::weak_ptr(state)] {
            if (const auto current = weak.lock())
                current->wasRead(0);
        };
        replaceOffer(state);
        const auto until = steady_clock::now() + compositorLimit;
        const bool owned = m_control->own(Selection::clipboard, formats,
                                          {.wasRead = wasRead, .cancelled = [this] { replaceOffer(nullptr); }}, until);
        // Succeed even if this fails: only the clipboard is required.
        if (owned && alsoPrimary)
            m_control->own(Selection::primary, formats, {.wasRead = wasRead, .cancelled = {}}, until);
        if (!owned) {
            replaceOffer(nullptr);
            appLog(QStringLiteral("❌ The compositor did not hand over the clipboard"), LogLevel::error,
                   QStringLiteral("Pasteboard"));
        }
        handleEvents();
        return owned ? std::make_shared<SharedPasteboardOffer>(std::move(state)) : nullptr;
    }

    bool restore(const PasteboardContents& contents, const std::shared_ptr<PasteboardOfferState>& offered) {
        handleEvents(); // Take into account a new owner that has been announced.
        if (!offered || m_offer != offered || !m_control->held(Selection::clipboard))
            return false;
        m_control->disown(Selection::primary);
        replaceOffer(nullptr);
        bool restored = true;
        if (contents.isEmpty())
            m_control->disown(Selection::clipboard);
        else
            restored = m_control->own(Selection::clipboard, contents.formats, {.wasRead = [] {}, .cancelled = {}},
                                      steady_clock::now() + compositorLimit);
        handleEvents();
        return restored;
    }

private:
    void handleEvents() {
        m_control->dispatch();
        m_changes = m_control->changeCount();
        if (m_control->isBroken() && !m_broken.exchange(true)) {
            if (m_notifier)
                m_notifier->setEnabled(false);
            replaceOffer(nullptr);
            appLog(QStringLiteral("❌ The clipboard is not available any more: ") + m_control->fault(), LogLevel::error,
                   QStringLiteral("Pasteboard"));
        }
    }

    void replaceOffer(std::shared_ptr<PasteboardOfferState> next) {
        if (m_offer)
            m_offer->lost();
        m_offer = std::move(next);
    }

    std::unique_ptr<DataControl> m_control;
    std::shared_ptr<PasteboardOfferState> m_offer;
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::atomic<uint64_t> m_changes;
    std::atomic<bool> m_broken = false;
};

class DataControlPasteboard final : public Pasteboard {
public:
    explicit DataControlPasteboard(std::unique_ptr<DataControl> control)
        : m_worker(std::make_shared<ClipboardWorker>(std::move(control))) {
        m_executor.post([worker = m_worker] { worker->start(); });
    }
    ~DataControlPasteboard() override {
        m_executor.post([worker = m_worker] { worker->finish(); });
    }
    DataControlPasteboard(const DataControlPasteboard&) = delete;
    DataControlPasteboard& operator=(const DataControlPasteboard&) = delete;

    [[nodiscard]] bool isAvailable() const override { return !m_worker->isBroken(); }
    [[nodiscard]] std::optional<uint64_t> changeCount() const override { return m_worker->changeCount(); }

    Task<PasteboardContents> read(std::chrono::milliseconds deadline) override {
        // Measure the time from the call, not from the start of the job.
        return perform(m_executor, EventExecutor::main(),
                       [worker = m_worker, until = steady_clock::now() + deadline] { return worker->read(until); });
    }

    Task<std::shared_ptr<PasteboardOffer>> offerText(QString text, bool alsoPrimary, ClipboardUse) override {
        return perform(m_executor, EventExecutor::main(), [worker = m_worker, text = std::move(text), alsoPrimary] {
            return worker->offer(text, alsoPrimary);
        });
    }

    Task<bool> restore(PasteboardContents contents, std::shared_ptr<PasteboardOffer> offer) override {
        const auto ours = std::dynamic_pointer_cast<SharedPasteboardOffer>(offer);
        return perform(m_executor, EventExecutor::main(),
                       [worker = m_worker, contents = std::move(contents), state = ours ? ours->state() : nullptr] {
                           return worker->restore(contents, state);
                       });
    }

private:
    std::shared_ptr<ClipboardWorker> m_worker;
    SerialExecutor m_executor{QStringLiteral("quillo-clipboard")}; ///< destroyed first: its last job uses the worker
};

} // namespace

std::unique_ptr<Pasteboard> createDataControlPasteboard() {
    auto control = DataControl::open();
    if (!control)
        return nullptr;
    return std::make_unique<DataControlPasteboard>(std::move(control));
}

} // namespace quillo
