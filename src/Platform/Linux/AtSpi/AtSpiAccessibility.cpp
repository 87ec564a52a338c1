#include "Platform/Linux/AtSpi/AtSpiAccessibility.h"

#include "Core/Log.h"
#include "Platform/Linux/AtSpi/AtSpiCalls.h"
#include "Platform/Linux/AtSpi/AtSpiFocus.h"
#include "Platform/Linux/AtSpi/AtSpiSearch.h"
#include "Platform/Linux/AtSpi/AtSpiSwitch.h"

#include <algorithm>

namespace quillo {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

using Element = std::optional<FocusedElement>;

// Time limit for a program whose previous answer is known.
constexpr milliseconds confirmationTime(60);
// A search without a result counts this long: a program may join the bus, or be given a focus, without any event.
constexpr std::chrono::seconds unknownTime(5);
// Time limit for repeating such a search, which may come when the text is ready.
constexpr milliseconds repeatedSearchTime(300);
// The focus may move during the query; if it moves more often than this, the user is not dictating.
constexpr int mostMoves = 3;

// The coroutines hold the focus, because the object that started them may be destroyed first.

Task<Element> inquireElement(std::shared_ptr<AtSpiFocus> focus, atspi::Instant until) {
    if (focus->focused().isEmpty())
        co_return std::nullopt;
    co_return (co_await atspi::focusedElement(focus->bus(), focus->focused(), until)).element;
}

Task<std::optional<QString>> inquireCaret(std::shared_ptr<AtSpiFocus> focus, atspi::Instant until) {
    if (focus->focused().isEmpty())
        co_return std::nullopt;
    co_return co_await atspi::characterBeforeCaret(focus->bus(), focus->focused(), until);
}

/// Whether the known focused element belongs to `process`.
Task<bool> focusIsIn(std::shared_ptr<AtSpiFocus> focus, int64_t process, atspi::Instant until) {
    const AtSpiObject object = focus->focused();
    if (object.isEmpty())
        co_return false;
    co_return process == 0 || focus->wasFoundIn(process) ||
        co_await atspi::processOf(focus->bus(), object.service, until) == process;
}

/// The state of the presumed focused element; nothing when it does not have the focus.
Task<std::optional<AtSpiFocus::Settled>> askFocused(std::shared_ptr<AtSpiFocus> focus, int64_t process,
                                                    atspi::Instant until) {
    const auto settled = focus->settled(process);
    const auto end = settled ? std::min(until, steady_clock::now() + confirmationTime) : until;
    const auto answer = co_await atspi::focusedElement(focus->bus(), focus->focused(), end);
    if (answer.element)
        co_return AtSpiFocus::Settled{process, answer.element->isPassword ? SecureInput::on : SecureInput::off,
                                      answer.element->isTerminal};
    if (answer.isLate)
        co_return AtSpiFocus::Settled{process, settled.value_or(SecureInput::unanswered),
                                      focus->foundTerminal(process)};
    co_return std::nullopt;
}

Task<SecureInput> inquireSecure(std::shared_ptr<AtSpiFocus> focus, int64_t process, atspi::Instant until) {
    if (!focus->bus().isConnected())
        co_return SecureInput::unknown;
    for (int move = 0; move < mostMoves; ++move) {
        const uint64_t changes = focus->changes();
        const bool wasUnknown = focus->settled(process) == SecureInput::unknown;
        if (wasUnknown && !focus->isSettledSince(steady_clock::now() - unknownTime))
            until = std::min(until, steady_clock::now() + repeatedSearchTime);
        else if (wasUnknown)
            co_return SecureInput::unknown;
        if (co_await focusIsIn(focus, process, until)) {
            const auto answer = co_await askFocused(focus, process, until);
            if (focus->changes() != changes)
                continue;
            if (answer) {
                if (answer->answer != SecureInput::unanswered)
                    focus->settle(*answer);
                co_return answer->answer;
            }
        }
        const auto found = co_await atspi::findFocus(focus->bus(), process, until);
        if (focus->changes() != changes)
            continue;
        if (!found.object.isEmpty()) {
            appLog(QStringLiteral("🔍 Found the focus of process %1 in %2%3")
                       .arg(process)
                       .arg(found.object.service, found.object.path),
                   LogLevel::debug, QStringLiteral("Accessibility"));
            focus->found(found.object, process);
            continue;
        }
        if (found.isLate)
            co_return wasUnknown ? SecureInput::unknown : SecureInput::unanswered;
        // A program may join the bus at any time; checking for it costs little.
        if (found.isOnBus)
            focus->settle({process, SecureInput::unknown});
        co_return SecureInput::unknown;
    }
    co_return SecureInput::unanswered;
}

Task<SecureInput> answer(SecureInput value) { co_return value; }

class AtSpiAccessibility final : public Accessibility {
public:
    AtSpiAccessibility(std::function<bool()> keyboardIsGrabbed, AtSpiSwitchMemory memory)
        : m_keyboardIsGrabbed(std::move(keyboardIsGrabbed)), m_switch(std::move(memory)) {
        m_switch.turnOn();
        m_focus->start();
    }

    Task<Element> focusedElement(milliseconds deadline) override {
        return inquireElement(m_focus, steady_clock::now() + deadline);
    }

    Task<std::optional<QString>> characterBeforeCaret(milliseconds deadline) override {
        return inquireCaret(m_focus, steady_clock::now() + deadline);
    }

    Task<SecureInput> secureInput(int64_t process, milliseconds deadline) override {
        if (m_keyboardIsGrabbed && m_keyboardIsGrabbed())
            return answer(SecureInput::on);
        return inquireSecure(m_focus, process, steady_clock::now() + deadline);
    }

    [[nodiscard]] bool foundTerminal(int64_t process) const override { return m_focus->foundTerminal(process); }

private:
    std::function<bool()> m_keyboardIsGrabbed;
    AtSpiSwitch m_switch;
    std::shared_ptr<AtSpiFocus> m_focus = std::make_shared<AtSpiFocus>();
};

} // namespace

std::unique_ptr<Accessibility> createAtSpiAccessibility(std::function<bool()> keyboardIsGrabbed,
                                                        AtSpiSwitchMemory memory) {
    return std::make_unique<AtSpiAccessibility>(std::move(keyboardIsGrabbed), std::move(memory));
}

} // namespace quillo
