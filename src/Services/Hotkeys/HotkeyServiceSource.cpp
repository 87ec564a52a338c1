// The part of the hotkey service that manages the key event source: when it runs, with which combinations, and how it
// recovers. HotkeyService.cpp interprets the events.

#include "Services/Hotkeys/HotkeyChoice.h"
#include "Services/Hotkeys/HotkeyLog.h"
#include "Services/Hotkeys/HotkeyService.h"
#include "Services/Settings/KeyCodeLabels.h"

namespace quillo {

namespace {

constexpr auto longestRestartDelay = std::chrono::seconds(30);
constexpr auto grabRetry = std::chrono::seconds(15);

QString word(bool value) { return value ? QStringLiteral("true") : QStringLiteral("false"); }

} // namespace

HotkeyService::HotkeyService(KeyEventSource& source, Clock& clock, UserSettings& settings)
    : m_source(source), m_clock(clock), m_settings(settings) {
    const auto changed = [this] { configurationChanged(); };
    QObject::connect(&settings, &UserSettings::changed, &m_context, changed);
    QObject::connect(&settings, &UserSettings::userChanged, &m_context, changed);
}

void HotkeyService::configurationChanged() {
    updateConsumed();
    if (!m_isRunning || m_restartPending || HotkeyConfig::fromSettings(m_settings) == m_config)
        return;
    // Key code and modifiers of a hotkey change one after the other: restart once, when both are set.
    m_restartPending = true;
    deliver([this] {
        m_restartPending = false;
        if (!m_isRunning || HotkeyConfig::fromSettings(m_settings) == m_config)
            return;
        if (onConfigurationChanged)
            onConfigurationChanged();
        stop();
        start();
        if (onConflictsChanged)
            onConflictsChanged();
    });
}

HotkeyService::~HotkeyService() {
    if (m_isRunning)
        m_source.stop();
}

void HotkeyService::start() {
    if (m_isRunning) {
        hotkeyLog(QStringLiteral("⚠️ Already running"), LogLevel::warn);
        return;
    }
    m_config = HotkeyConfig::fromSettings(m_settings);
    hotkeyLog(QStringLiteral("🔧 Starting hotkey service"));
    hotkeyLog(QStringLiteral("   Hold hotkey: %1 (keyCode=%2), isModifierKey=%3")
                  .arg(m_config.displayString())
                  .arg(m_config.keyCode)
                  .arg(word(m_config.isModifierKey())));
    hotkeyLog(QStringLiteral("   Toggle hotkey: %1 (keyCode=%2)")
                  .arg(m_config.toggleDisplayString())
                  .arg(m_config.toggleKeyCode));
    const bool trusted = m_source.isTrusted();
    hotkeyLog(QStringLiteral("🔐 Accessibility trusted: ") + word(trusted));
    if (!trusted)
        hotkeyLog(QStringLiteral(
                      "⚠️ Accessibility permission not granted! Hotkeys will not work until permission is granted."),
                  LogLevel::warn);
    m_escapeConsumed = isEscapeConsumed();
    const auto onEvent = [this](const KeyEvent& event) { handle(event); };
    const auto onState = [this](KeyEventSourceState state) { handleState(state); };
    if (!m_source.start(m_config.consumedCombinations(m_escapeConsumed), onEvent, onState)) {
        hotkeyLog(QStringLiteral("❌ Failed to create event tap!"), LogLevel::error);
        hotkeyLog(QStringLiteral("   Make sure Accessibility permission is granted"), LogLevel::error);
        return;
    }
    m_isRunning = true;
    m_retry = {};
    // A line that readers of the log search for; see docs/compatibility.md.
    hotkeyLog(QStringLiteral("✅ CGEventTap installed and enabled!"));
    hotkeyLog(QStringLiteral("   Listening for: ") + m_config.displayString());
    for (const auto& conflict : conflicts())
        hotkeyLog(QStringLiteral("⚠️ Another program holds %1: it does nothing here. Choose another hotkey")
                      .arg(keyCombinationToString(conflict.taken.keyCode, conflict.taken.modifiers)),
                  LogLevel::warn);
    scheduleGrab();
}

void HotkeyService::stop() {
    m_retry = {};
    m_capture.reset();
    if (!m_isRunning)
        return;
    m_isRunning = false;
    m_source.stop();
    m_heldKeyWatch.reset();
    // Otherwise a running recording would continue without a key to stop it.
    carryOut(m_state.reset(), m_clock.now());
}

bool HotkeyService::isHeldByOther(const KeyCombination& combination) const {
    const auto held = m_source.unavailableCombinations();
    return std::ranges::find(held, combination) != held.end();
}

std::vector<HotkeyConflict> HotkeyService::conflicts() const {
    std::vector<HotkeyConflict> found;
    const std::pair<Hotkey, KeyCombination> hotkeys[] = {
        {Hotkey::hold, {m_config.keyCode, m_config.modifiers}},
        {Hotkey::toggle, {m_config.toggleKeyCode, m_config.toggleModifiers}}};
    for (const auto& [hotkey, combination] : hotkeys) {
        if (!m_isRunning || !isHeldByOther(combination))
            continue;
        const auto free = m_source.freeAmong(hotkeyChoice::alternatives(hotkey));
        found.push_back({hotkey, combination, free.empty() ? std::nullopt : std::optional(free.front())});
    }
    return found;
}

bool HotkeyService::isFree(const KeyCombination& combination) const {
    return modifierKeyBit(combination.keyCode) != 0 || !m_source.freeAmong({combination}).empty();
}

void HotkeyService::scheduleGrab() {
    if (conflicts().empty())
        return;
    // The other program may end or be set to another key.
    m_retry.grab = m_clock.callLater(grabRetry, [this] {
        const auto keepUntilDone = std::move(m_retry.grab);
        m_source.setConsumed(m_config.consumedCombinations(m_escapeConsumed));
        if (conflicts().empty() && onConflictsChanged)
            onConflictsChanged();
        scheduleGrab();
    });
}

void HotkeyService::handleState(KeyEventSourceState state) {
    switch (state) {
    case KeyEventSourceState::running:
        break;
    case KeyEventSourceState::keyboardChanged:
        hotkeyLog(QStringLiteral("🔹 The keyboards changed"), LogLevel::debug);
        if (m_state.isHotkeyPressed() && !m_source.isPhysicallyDown(m_config.keyCode)) {
            hotkeyLog(QStringLiteral("⚠️ The keyboard with the pressed hotkey is gone: taken as released"),
                      LogLevel::warn);
            handleHoldKeyUp(m_clock.now());
        }
        break;
    case KeyEventSourceState::notAvailable:
    case KeyEventSourceState::lost:
        if (!m_isRunning)
            break;
        hotkeyLog(QStringLiteral("⚠️ The key events were lost; trying again"), LogLevel::warn);
        // Do not destroy the source from inside its own callback.
        deliver([this] {
            if (!m_isRunning)
                return;
            stop();
            scheduleRestart();
        });
        break;
    }
}

void HotkeyService::scheduleRestart() {
    m_retry.restart = m_clock.callLater(m_retry.restartDelay, [this] {
        const auto keepUntilDone = std::move(m_retry.restart);
        m_retry.restartDelay = std::min<Clock::Duration>(m_retry.restartDelay * 2, longestRestartDelay);
        start();
        if (!m_isRunning)
            scheduleRestart();
        else if (onKeysReturned)
            onKeysReturned();
        if (m_isRunning && onConflictsChanged)
            onConflictsChanged();
    });
}

void HotkeyService::updateConsumed() {
    const bool escape = isEscapeConsumed();
    if (!m_isRunning || escape == m_escapeConsumed)
        return;
    m_escapeConsumed = escape;
    // Post it: not from inside an event of the source, and not before the start that caused it.
    deliver([this] {
        if (m_isRunning)
            m_source.setConsumed(m_config.consumedCombinations(m_escapeConsumed));
    });
}

void HotkeyService::deliver(std::function<void()> callback) {
    m_clock.executor().post([alive = std::weak_ptr(m_alive), callback = std::move(callback)] {
        if (alive.lock())
            callback();
    });
}

} // namespace quillo
