#include "Services/Injection/TextInjectionService.h"

#include "Concurrency/AsyncEvent.h"
#include "Core/Log.h"
#include "Services/Injection/InjectionRules.h"

#include <QSet>

#include <algorithm>

namespace quillo {
namespace {

// The owner of the clipboard and the accessibility bus may hang; the text must not wait for them.
constexpr auto clipboardDeadline = std::chrono::milliseconds(200);
// Looking ahead may take as long as the first words.
constexpr auto lookAheadDeadline = std::chrono::seconds(5);
constexpr auto readAheadDeadline = std::chrono::seconds(5);
// A text may pass a reading of the clipboard that has lasted longer: its owner is slow or hangs.
constexpr auto readAheadPatience = std::chrono::seconds(1);
// Code units that are typed in about half a second.
constexpr qsizetype quicklyTypedText = 250;
// For a program that was too busy to answer while the user spoke; others have already answered.
constexpr auto secureInputDeadline = std::chrono::milliseconds(1500);
// Within this time a program that is going to join the accessibility bus has usually done so.
constexpr auto joiningTime = std::chrono::seconds(1);
constexpr auto focusDeadline = std::chrono::milliseconds(100);
constexpr auto caretDeadline = std::chrono::milliseconds(300);
constexpr auto longestGrace = std::chrono::seconds(2);
constexpr auto longestTurn = std::chrono::seconds(30);

void log(const QString& message, LogLevel level) { appLog(message, level, QStringLiteral("TextInjection")); }

QString nameOf(const std::optional<RunningApplication>& application) {
    return application && !application->name.isEmpty() ? application->name : QStringLiteral("Unknown");
}

qsizetype characterCount(const QString& text) {
    return std::count_if(text.begin(), text.end(), [](QChar unit) { return !unit.isLowSurrogate(); });
}

QString lastCharacterOf(const QString& text) { return text.right(text.back().isLowSurrogate() ? 2 : 1); }

} // namespace

struct TextInjectionService::State {
    /// A clipboard content to be restored.
    struct Saved {
        PasteboardContents contents;
        std::shared_ptr<PasteboardOffer> offer;
        Clock::Instant safeFrom; ///< when the target must have read it, should the reader have been another
    };

    /// The last delivered text.
    struct Delivered {
        RunningApplication application;
        QString lastCharacter;
        Clock::Instant at;
    };

    State(Pasteboard& board, KeyInjector& keys, Applications& windows, Accessibility& elements, Clock& time,
          std::function<bool()> spacing)
        : pasteboard(board), injector(keys), applications(windows), accessibility(elements), clock(time),
          smartSpacing(std::move(spacing)) {}

    Pasteboard& pasteboard;
    KeyInjector& injector;
    Applications& applications;
    Accessibility& accessibility;
    Clock& clock;
    std::function<bool()> smartSpacing;
    std::optional<Delivered> predecessor;
    TaskRunner runner{[](const QString& name, const QString& error) {
        log(QStringLiteral("❌ %1 failed: %2").arg(name, error), LogLevel::error);
    }};
    QString lastUndelivered;
    std::optional<AsyncEvent> turn; ///< set while an injection runs; its event says when the next may
    std::optional<std::pair<PasteboardContents, uint64_t>> prepared;
    std::optional<AsyncEvent> preparing; ///< set while the clipboard is read ahead
    Clock::Instant preparingSince{};
    std::optional<Saved> pendingRestore;
    std::optional<AsyncEvent> restoring; ///< set while the clipboard is being restored
    TaskHandle restoreTask;
    std::stop_source ended;
    std::function<void(const QString&)>* onSecretsUnknown = nullptr; ///< the service's, null once it has ended
    QSet<QString> unknownApplications;                               ///< those about which the user has been warned

    static Task<Delivery> inject(std::shared_ptr<State> self, QString text, InjectionMode mode, bool restoreClipboard);
    static Task<Delivery> injectInTurn(std::shared_ptr<State> self, QString text, InjectionMode mode, bool restore);
    static Task<Delivery> injectViaPaste(std::shared_ptr<State> self, QString text, bool restore,
                                         std::optional<RunningApplication> application);
    static Task<Delivery> leaveOnClipboard(std::shared_ptr<State> self, QString text, const char* reason);
    static Task<SecureInput> secureInput(std::shared_ptr<State> self, std::optional<RunningApplication> application,
                                         std::chrono::milliseconds deadline);
    static Task<> lookForSecrets(std::shared_ptr<State> self);
    static Task<PasteboardContents> saveClipboard(std::shared_ptr<State> self);
    static Task<bool> typesInstead(std::shared_ptr<State> self, QString text);
    static Task<> restoreAfterGrace(std::shared_ptr<State> self, std::stop_token token);
    static Task<bool> lacksBlank(std::shared_ptr<State> self, RunningApplication application, QString text);
    static Task<> prepare(std::shared_ptr<State> self);
    static Task<> readClipboardAhead(std::shared_ptr<State> self);
    static Task<bool> hasFocusedTextField(std::shared_ptr<State> self);
    static void throwUnlessDelivered(InjectionStatus status);
};

TextInjectionService::TextInjectionService(Pasteboard& pasteboard, KeyInjector& injector, Applications& applications,
                                           Accessibility& accessibility, Clock& clock,
                                           std::function<bool()> smartSpacing)
    : m_state(
          std::make_shared<State>(pasteboard, injector, applications, accessibility, clock, std::move(smartSpacing))) {
    m_state->onSecretsUnknown = &onSecretsUnknown;
}

TextInjectionService::~TextInjectionService() {
    m_state->onSecretsUnknown = nullptr;
    m_state->ended.request_stop();
    m_state->runner.cancelAll();
}

Task<Delivery> TextInjectionService::inject(QString text, InjectionMode mode, bool restoreClipboard) {
    return State::inject(m_state, std::move(text), mode, restoreClipboard);
}

Task<bool> TextInjectionService::hasFocusedTextField() { return State::hasFocusedTextField(m_state); }

Task<> TextInjectionService::prepareForInjection() { return State::prepare(m_state); }

QString TextInjectionService::lastUndelivered() const { return m_state->lastUndelivered; }

Task<Delivery> TextInjectionService::insertAgain() {
    // The text stays on the clipboard, because the user requested it explicitly.
    return State::inject(m_state, m_state->lastUndelivered, InjectionMode::paste, false);
}

Task<Delivery> TextInjectionService::State::inject(std::shared_ptr<State> self, QString text, InjectionMode mode,
                                                   bool restoreClipboard) {
    while (self->turn) {
        const AsyncEvent previous = *self->turn;
        co_await previous.wait(self->clock, longestTurn);
    }
    self->turn.emplace();
    std::exception_ptr failure;
    const auto application = self->applications.frontmost();
    auto delivery = Delivery::read;
    try {
        delivery = co_await injectInTurn(self, text, mode, restoreClipboard);
    } catch (...) {
        failure = std::current_exception();
    }
    const bool arrived = !failure && (delivery == Delivery::read || delivery == Delivery::typed);
    self->lastUndelivered = arrived ? QString() : text;
    self->predecessor.reset();
    if (arrived && application && !text.isEmpty())
        self->predecessor = Delivered{*application, lastCharacterOf(text), self->clock.now()};
    AsyncEvent done = *std::exchange(self->turn, std::nullopt);
    done.set();
    if (failure)
        std::rethrow_exception(failure);
    co_return delivery;
}

Task<Delivery> TextInjectionService::State::injectInTurn(std::shared_ptr<State> self, QString text, InjectionMode mode,
                                                         bool restore) {
    auto application = self->applications.frontmost();
    log(QStringLiteral("🧩 Injecting text: mode=%1 len=%2 activeApp=%3 restoreClipboard=%4")
            .arg(mode == InjectionMode::paste ? QStringLiteral("paste") : QStringLiteral("type"))
            .arg(characterCount(text))
            .arg(nameOf(application), restore ? QStringLiteral("true") : QStringLiteral("false")),
        LogLevel::info);
    text = withoutControlCharacters(text);
    if (text.isEmpty())
        co_return Delivery::typed;
    const auto secrecy = co_await secureInput(self, application, secureInputDeadline);
    if (application && !application->isTerminal)
        application->isTerminal = self->accessibility.foundTerminal(application->pid);
    text = textFor(application, text);
    if (text.isEmpty())
        co_return Delivery::typed;
    if (secrecy == SecureInput::on) {
        log(mode == InjectionMode::paste ? QStringLiteral("🔒 Secure Input enabled — cannot paste")
                                         : QStringLiteral("🔒 Secure Input enabled — cannot type-inject"),
            LogLevel::warn);
        throw TextInjectionError(TextInjectionError::Code::secureInput);
    }
    if (!self->injector.isAvailable())
        co_return co_await leaveOnClipboard(self, text, "No keys can be sent here");
    // A hung program does not process keys either; when it resumes, its password field would get them.
    if (secrecy == SecureInput::unanswered)
        co_return co_await leaveOnClipboard(self, text, "The program in front does not tell what has the focus");
    if (application && co_await lacksBlank(self, *application, text))
        text.prepend(u' ');
    if (mode == InjectionMode::type && text.size() > longestTypedText && self->pasteboard.isAvailable()) {
        log(QStringLiteral("⚠️ %1 characters are too many to type: pasting them").arg(characterCount(text)),
            LogLevel::warn);
        mode = InjectionMode::paste;
    }
    if (mode == InjectionMode::type && holdsKeysThatAct(text) && self->pasteboard.isAvailable()) {
        log(QStringLiteral("🔹 The text has line ends or tabs, which act as keys: pasting it"), LogLevel::info);
        mode = InjectionMode::paste;
    }
    if (mode == InjectionMode::paste && !self->pasteboard.isAvailable()) {
        log(QStringLiteral("⚠️ No clipboard here: typing the text"), LogLevel::warn);
        mode = InjectionMode::type;
    }
    if (mode == InjectionMode::type) {
        const auto status = co_await self->injector.typeText(text, {});
        if (status != InjectionStatus::untypable || !self->pasteboard.isAvailable()) {
            throwUnlessDelivered(status);
            co_return Delivery::typed;
        }
        log(QStringLiteral("🔹 The program in front does not tell when it has understood characters that the keyboard "
                           "lacks: pasting them"),
            LogLevel::info);
    }
    co_return co_await injectViaPaste(self, text, restore, application);
}

Task<SecureInput> TextInjectionService::State::secureInput(std::shared_ptr<State> self,
                                                           std::optional<RunningApplication> application,
                                                           std::chrono::milliseconds deadline) {
    const auto answer = co_await self->accessibility.secureInput(application ? application->pid : 0, deadline);
    // It is never known what a terminal asks for, and its users know that.
    if (answer != SecureInput::unknown || !application || application->isTerminal || !self->injector.isAvailable() ||
        self->unknownApplications.contains(application->bundleIdentifier))
        co_return answer;
    self->unknownApplications.insert(application->bundleIdentifier);
    log(QStringLiteral("⚠️ %1 does not tell which of its fields is a password field").arg(nameOf(application)),
        LogLevel::warn);
    if (self->onSecretsUnknown && *self->onSecretsUnknown)
        (*self->onSecretsUnknown)(nameOf(application));
    co_return answer;
}

Task<bool> TextInjectionService::State::lacksBlank(std::shared_ptr<State> self, RunningApplication application,
                                                   QString text) {
    const auto& last = self->predecessor;
    // The content of a terminal is unknown: it may be asking for a password.
    if (!last || !self->smartSpacing || !self->smartSpacing() || application.isTerminal ||
        last->application != application || self->clock.now() - last->at > continuationTime ||
        !needsBlankBetween(last->lastCharacter, text))
        co_return false;
    const QString expected = last->lastCharacter;
    const auto found = co_await self->accessibility.characterBeforeCaret(caretDeadline);
    // Another character means that the user has typed or moved the caret since.
    if (found != expected)
        log(QStringLiteral("🔹 No blank before the text: %1")
                .arg(found ? QStringLiteral("the caret has moved") : QStringLiteral("the caret is unknown")),
            LogLevel::debug);
    co_return found == expected;
}

void TextInjectionService::State::throwUnlessDelivered(InjectionStatus status) {
    switch (status) {
    case InjectionStatus::delivered:
        return;
    case InjectionStatus::noEventSource:
        throw TextInjectionError(TextInjectionError::Code::eventSource);
    case InjectionStatus::noKeyboardEvent:
    case InjectionStatus::cancelled:
    case InjectionStatus::untypable:
        throw TextInjectionError(TextInjectionError::Code::keyboardEvent);
    }
}

Task<Delivery> TextInjectionService::State::leaveOnClipboard(std::shared_ptr<State> self, QString text,
                                                             const char* reason) {
    if (!self->pasteboard.isAvailable())
        throw TextInjectionError(TextInjectionError::Code::eventSource);
    self->restoreTask.cancel();
    self->pendingRestore.reset();
    // Offer it on the primary selection too, for pasting with the middle mouse button.
    if (!co_await self->pasteboard.offerText(text, true, ClipboardUse::lasting))
        throw TextInjectionError(TextInjectionError::Code::eventSource);
    log(QStringLiteral("⚠️ %1: the text is on the clipboard").arg(QLatin1String(reason)), LogLevel::warn);
    co_return Delivery::clipboardOnly;
}

Task<Delivery> TextInjectionService::State::injectViaPaste(std::shared_ptr<State> self, QString text, bool restore,
                                                           std::optional<RunningApplication> application) {
    const PasteChord chord = pasteChordFor(application);
    const int64_t reader = application ? application->pid : 0;
    PasteboardContents saved;
    if (restore)
        saved = co_await saveClipboard(self);
    if (restore && !saved.complete && saved.isEmpty() && co_await typesInstead(self, text))
        co_return Delivery::typed;
    self->restoreTask.cancel();
    self->pendingRestore.reset();
    self->prepared.reset();

    const auto offer =
        co_await self->pasteboard.offerText(text, chord == PasteChord::shiftInsert, ClipboardUse::passing);
    if (!offer)
        throw TextInjectionError(TextInjectionError::Code::eventSource);
    // Clipboard managers read every text, some at once and some late: only the target's reads after the keys count.
    const auto status = co_await self->injector.pressChord(chord, [offer, reader] { offer->countReadsOf(reader); });
    const auto pressedAt = self->clock.now();
    const bool mayRestore = restore && !saved.isEmpty();
    if (status != InjectionStatus::delivered && mayRestore)
        co_await self->pasteboard.restore(saved, offer);
    throwUnlessDelivered(status);

    const Clock::Duration deadline = readDeadline + std::chrono::milliseconds(text.size() / 1000);
    if (!co_await offer->waitUntilRead(std::chrono::ceil<std::chrono::milliseconds>(deadline))) {
        log(QStringLiteral("⚠️ Nobody has read the text yet: it stays on the clipboard"), LogLevel::warn);
        co_return Delivery::unconfirmed;
    }
    if (mayRestore) {
        self->pendingRestore = Saved{std::move(saved), offer, pressedAt + unknownReaderTime};
        const auto body = [weak = std::weak_ptr(self)](std::stop_token token) -> Task<> {
            if (auto state = weak.lock())
                return restoreAfterGrace(std::move(state), std::move(token));
            return []() -> Task<> { co_return; }();
        };
        self->restoreTask = self->runner.run(QStringLiteral("Giving the clipboard back"), body);
    }
    co_return Delivery::read;
}

Task<PasteboardContents> TextInjectionService::State::saveClipboard(std::shared_ptr<State> self) {
    if (self->restoring) {
        const AsyncEvent restored = *self->restoring;
        co_await restored.wait(self->clock, clipboardDeadline);
    }
    if (self->preparing) {
        const AsyncEvent ready = *self->preparing;
        const auto left = self->preparingSince + readAheadPatience - self->clock.now();
        if (left > Clock::Duration::zero())
            co_await ready.wait(self->clock, left);
    }
    // The clipboard may still contain the last dictation, with the earlier content waiting to be restored.
    if (self->pendingRestore && self->pendingRestore->offer->isOwner())
        co_return PasteboardContents(self->pendingRestore->contents);
    PasteboardContents contents;
    if (self->preparing)
        contents.complete = false;
    // Do not ask an owner again that hung when its content was read ahead.
    else if (self->prepared && self->pasteboard.changeCount() == self->prepared->second)
        contents = self->prepared->first;
    else
        contents = co_await self->pasteboard.read(clipboardDeadline);
    if (!contents.complete)
        log(QStringLiteral("⚠️ The clipboard could not be read in full; what was read of it will be given back"),
            LogLevel::warn);
    co_return contents;
}

/// Pasting would destroy the content of the clipboard, which cannot be read: types a text that is short enough.
Task<bool> TextInjectionService::State::typesInstead(std::shared_ptr<State> self, QString text) {
    if (text.size() > quicklyTypedText || holdsKeysThatAct(text))
        co_return false;
    const auto status = co_await self->injector.typeText(text, {});
    if (status == InjectionStatus::untypable)
        co_return false;
    throwUnlessDelivered(status);
    log(QStringLiteral("🔹 The owner of the clipboard does not answer: the text was typed, and the clipboard kept"),
        LogLevel::info);
    co_return true;
}

Task<> TextInjectionService::State::restoreAfterGrace(std::shared_ptr<State> self, std::stop_token token) {
    const auto offer = self->pendingRestore->offer;
    if (const auto left = self->pendingRestore->safeFrom - self->clock.now();
        !offer->knowsReader() && left > Clock::Duration::zero() && !co_await self->clock.sleep(left, token))
        co_return;
    const auto end = self->clock.now() + longestGrace;
    for (int reads = -1; reads != offer->reads() && self->clock.now() < end;) {
        reads = offer->reads();
        if (!co_await self->clock.sleep(restoreGrace, token))
            co_return;
    }
    // Another injection may have taken over the saved content while this one waited.
    if (token.stop_requested() || !self->pendingRestore || self->pendingRestore->offer != offer)
        co_return;
    const auto contents = std::exchange(self->pendingRestore, std::nullopt)->contents;
    AsyncEvent restored;
    self->restoring = restored;
    const bool done = co_await self->pasteboard.restore(contents, offer);
    self->restoring.reset();
    restored.set();
    if (!done)
        log(QStringLiteral("🔹 The clipboard was not given back: someone has used it since"), LogLevel::debug);
}

Task<> TextInjectionService::State::prepare(std::shared_ptr<State> self) {
    auto looking = lookForSecrets(self);
    co_await readClipboardAhead(self);
    co_await looking;
}

Task<> TextInjectionService::State::lookForSecrets(std::shared_ptr<State> self) {
    const auto application = self->applications.frontmost();
    const auto process = application ? application->pid : 0;
    // A program that has just started, or was started before us, may not have joined the bus yet: ask a second time
    // before warning of it. If the text is ready earlier, `inject` warns.
    if (co_await self->accessibility.secureInput(process, lookAheadDeadline) != SecureInput::unknown ||
        !co_await self->clock.sleep(joiningTime, self->ended.get_token()))
        co_return;
    co_await secureInput(self, application, lookAheadDeadline);
}

Task<> TextInjectionService::State::readClipboardAhead(std::shared_ptr<State> self) {
    self->prepared.reset();
    if (self->preparing)
        co_return;
    const auto count = self->pasteboard.changeCount();
    // If the clipboard is not restored, its content is not needed.
    if (!self->pasteboard.isAvailable() || !self->injector.isAvailable() || !count || self->pendingRestore)
        co_return;
    AsyncEvent ready;
    self->preparing = ready;
    self->preparingSince = self->clock.now();
    auto contents = co_await self->pasteboard.read(readAheadDeadline);
    if (self->pasteboard.changeCount() == count)
        self->prepared.emplace(std::move(contents), *count);
    self->preparing.reset();
    ready.set();
}

Task<bool> TextInjectionService::State::hasFocusedTextField(std::shared_ptr<State> self) {
    const auto element = co_await self->accessibility.focusedElement(focusDeadline);
    if (!element) {
        log(QStringLiteral("🔍 Can't get focused element in %1 — assuming text field")
                .arg(nameOf(self->applications.frontmost())),
            LogLevel::debug);
        co_return true;
    }
    const bool result = isTextField(*element);
    if (!isTextRole(element->role))
        log(QStringLiteral("🔍 Focused role=%1 — %2")
                .arg(element->role, result ? QStringLiteral("assuming text field") : QStringLiteral("no text field")),
            LogLevel::debug);
    co_return result;
}

} // namespace quillo
