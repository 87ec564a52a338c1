// The part of the hotkey service that manages the key event source: when it runs, with which combinations, and how it
// recovers. HotkeyService.cpp interprets the events.

#include "Services/Hotkeys/HotkeyLog.h"
#include "Services/Hotkeys/HotkeyService.h"
#include "Services/Settings/KeyCodeLabels.h"

namespace quillo {

namespace {

constexpr auto longestRestartDelay = std::chrono::seconds(30);

QString word(bool value) { return value ? QStringLiteral("true") : QStringLiteral("false"); }

} // namespace

HotkeyService::HotkeyService(KeyEventSource& source, Clock& clock, UserSettings& settings)
    : m_source(source), m_clock(clock), m_settings(settings) {
    const auto reconfigure = [this] {
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
        });
    };
    QObject::connect(&settings, &UserSettings::changed, &m_context, reconfigure);
    QObject::connect(&settings, &UserSettings::userChanged, &m_context, reconfigure);
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
    m_restart.reset();
    m_restartDelay = std::chrono::seconds(1);
    // A line that readers of the log search for; see docs/compatibility.md.
    hotkeyLog(QStringLiteral("✅ CGEventTap installed and enabled!"));
    hotkeyLog(QStringLiteral("   Listening for: ") + m_config.displayString());
    for (const auto& taken : m_source.unavailableCombinations())
        hotkeyLog(
            QStringLiteral("⚠️ Another program holds %1: it will act on it too. Choose another hotkey in the settings")
                .arg(keyCombinationToString(taken.keyCode, taken.modifiers)),
            LogLevel::warn);
}

void HotkeyService::stop() {
    m_restart.reset();
    if (!m_isRunning)
        return;
    m_isRunning = false;
    m_source.stop();
    // Otherwise a running recording would continue without a key to stop it.
    const bool wasHandsOff = m_isHandsOffMode;
    if (m_isRecording) {
        if (wasHandsOff)
            setHandsOff(false);
        end(Ending::stop);
    }
    clearRecording();
    m_isHotkeyPressed = false;
    m_alreadyStoppedOnKeyDown = false;
    m_heldKeyWatch.reset();
    m_lastKeyUpTime.reset();
}

std::vector<KeyCombination> HotkeyService::unavailableCombinations() const {
    return m_isRunning ? m_source.unavailableCombinations() : std::vector<KeyCombination>();
}

void HotkeyService::handleState(KeyEventSourceState state) {
    switch (state) {
    case KeyEventSourceState::running:
        break;
    case KeyEventSourceState::keyboardChanged:
        hotkeyLog(QStringLiteral("🔹 The keyboards changed"), LogLevel::debug);
        if (m_isHotkeyPressed && !m_source.isPhysicallyDown(m_config.keyCode)) {
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
    m_restart = m_clock.callLater(m_restartDelay, [this] {
        m_restartDelay = std::min<Clock::Duration>(m_restartDelay * 2, longestRestartDelay);
        const auto delay = m_restartDelay;
        start();
        if (!m_isRunning) {
            m_restartDelay = delay;
            scheduleRestart();
        } else if (onKeysReturned) {
            onKeysReturned();
        }
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

} // namespace quillo
