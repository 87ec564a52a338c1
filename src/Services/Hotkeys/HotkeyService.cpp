#include "Services/Hotkeys/HotkeyService.h"

#include "Services/Hotkeys/HotkeyLog.h"
#include "Services/Settings/KeyCodeLabels.h"

#include <cmath>

namespace quillo {

namespace {

// How often a held key is checked: its release can be lost when another session or a hypervisor takes the keyboard.
constexpr auto heldKeyCheck = std::chrono::milliseconds(500);

/// Desktops and programs open a menu at the release of such a key if no other key was pressed in between.
bool opensMenu(uint16_t keyCode) { return (modifierMaskOfKey(keyCode) & (keyflag::command | keyflag::option)) != 0; }

} // namespace

void HotkeyService::handle(const KeyEvent& event) {
    if (!m_isRunning)
        return;
    if (m_debugMode)
        hotkeyLog(QStringLiteral("🔹 %1 keyCode=%2 target=%3 flags=0x%4")
                      .arg(event.type == KeyEventType::keyDown ? QStringLiteral("KeyDown")
                           : event.type == KeyEventType::keyUp ? QStringLiteral("KeyUp")
                                                               : QStringLiteral("FlagsChanged"))
                      .arg(event.keyCode)
                      .arg(m_config.keyCode)
                      .arg(event.flags, 0, 16),
                  LogLevel::debug);
    if (m_capture)
        return capture(event);
    switch (event.type) {
    case KeyEventType::keyDown:
        handleKeyDown(event);
        break;
    case KeyEventType::keyUp:
        if (!m_config.isModifierKey() && event.keyCode == m_config.keyCode && m_state.isHotkeyPressed())
            handleHoldKeyUp(m_clock.now() - event.age);
        break;
    case KeyEventType::flagsChanged:
        handleFlagsChanged(event);
        break;
    }
}

void HotkeyService::handleKeyDown(const KeyEvent& event) {
    if (event.isAutoRepeat)
        return;
    const uint64_t modifiers = event.flags & keyflag::mask;
    // A held hold key is not a modifier of another hotkey, unless that hotkey includes it. What kind of modifier the
    // key is, depends on the layout.
    const bool isHeldModifier = m_config.isModifierKey() && m_state.isHotkeyPressed();
    const uint64_t own = isHeldModifier ? modifierMaskOfKey(m_config.keyCode) & modifiers : 0;
    const auto matches = [&](uint64_t wanted) { return modifiers == wanted || (modifiers & ~own) == (wanted & ~own); };
    const auto at = m_clock.now() - event.age;
    const bool isOurs = !isHeldByOther({event.keyCode, modifiers});
    if (isOurs && event.keyCode == m_config.toggleKeyCode && matches(m_config.toggleModifiers))
        return carryOut(m_state.handleToggleKeyPress(at, m_config), at);
    if (isOurs && event.keyCode == keycode::escape && matches(0) && isEscapeConsumed())
        return carryOut(m_state.abandon(QStringLiteral("🛑 ESCAPE: CANCEL RECORDING")), at);
    if (!m_config.isModifierKey()) {
        if (isOurs && event.keyCode == m_config.keyCode && modifiers == m_config.modifiers &&
            !m_state.isHotkeyPressed())
            handleHoldKeyDown(at);
        return;
    }
    if (m_state.isChord(at))
        carryOut(m_state.abandon(QStringLiteral("🔹 HOLD MODE: USED IN A CHORD - RECORDING CANCELLED ") +
                                 m_config.displayString()),
                 at);
}

void HotkeyService::handleFlagsChanged(const KeyEvent& event) {
    const auto at = m_clock.now() - event.age;
    if (m_config.isModifierKey()) {
        const bool isDown = (event.flags & modifierKeyBit(m_config.keyCode)) != 0;
        if (isDown && event.keyCode == m_config.keyCode) {
            if (opensMenu(m_config.keyCode))
                m_source.hideLoneTap();
            if (!m_state.isHotkeyPressed() && !m_state.isToggleRecording())
                handleHoldKeyDown(at);
        } else if (!isDown && m_state.isHotkeyPressed()) {
            handleHoldKeyUp(at);
        }
    } else if (m_state.isHotkeyPressed() && (event.flags & m_config.modifiers) != m_config.modifiers) {
        hotkeyLog(QStringLiteral("✅ MODIFIERS RELEASED! ") + m_config.displayString());
        handleHoldKeyUp(at);
    }
}

void HotkeyService::capture(const KeyEvent& event) {
    const bool isPress = (event.flags & modifierKeyBit(event.keyCode)) != 0;
    if (event.type == KeyEventType::flagsChanged && isPress && opensMenu(event.keyCode))
        m_source.hideLoneTap();
    const auto key = m_capture->key.handle(event);
    if (!key)
        return;
    deliver([onKey = std::move(m_capture->onKey), key = *key] { onKey(key); });
    m_capture.reset();
}

void HotkeyService::captureKey(std::function<void(const KeyCombination&)> onKey) {
    m_capture.reset();
    if (onKey)
        m_capture = Capture{.key = {}, .onKey = std::move(onKey)};
}

Clock::Duration HotkeyService::doubleTapInterval() const {
    const double seconds = m_settings.value(QStringLiteral("doubleTapInterval")).toDouble();
    return std::chrono::nanoseconds(std::llround((seconds > 0 ? seconds : 0.3) * 1e9));
}

bool HotkeyService::isEscapeConsumed() const { return m_state.isRecording() && m_settings.cancelRecordingOnEscape(); }

void HotkeyService::handleHoldKeyDown(Clock::Instant at) {
    carryOut(m_state.handleHoldKeyDown(at, doubleTapInterval(), m_config), at);
    m_wasSeenDown = m_source.isPhysicallyDown(m_config.keyCode);
    watchHeldKey();
}

void HotkeyService::handleHoldKeyUp(Clock::Instant at) {
    m_heldKeyWatch.reset();
    carryOut(m_state.handleHoldKeyUp(at, doubleTapInterval()), at);
}

void HotkeyService::carryOut(const HotkeyState::Transition& transition, Clock::Instant at) {
    for (const auto& line : transition.log)
        hotkeyLog(line);
    for (const auto effect : transition.effects) {
        switch (effect) {
        case HotkeyState::Effect::begin:
            ++m_startsUnderway;
            deliver([this, at] {
                --m_startsUnderway;
                if (onHotkeyDown)
                    onHotkeyDown(at);
            });
            break;
        case HotkeyState::Effect::handsOff:
        case HotkeyState::Effect::noHandsOff:
            deliver([this, on = effect == HotkeyState::Effect::handsOff] {
                if (onHandsOffModeChanged)
                    onHandsOffModeChanged(on);
            });
            break;
        case HotkeyState::Effect::stop:
        case HotkeyState::Effect::cancel:
            deliver([this, cancels = effect == HotkeyState::Effect::cancel] {
                if (cancels && onCancel)
                    onCancel();
                else if (onHotkeyUp)
                    onHotkeyUp();
            });
            break;
        }
    }
    stateChanged();
}

void HotkeyService::stateChanged() {
    m_pendingStop.reset();
    if (const auto dueAt = m_state.stopDueAt()) {
        const auto left = std::max(*dueAt - m_clock.now(), Clock::Duration::zero());
        m_pendingStop = m_clock.callLater(left, [this] {
            const auto keepUntilDone = std::move(m_pendingStop);
            carryOut(m_state.stopAfterDelay(m_config), m_clock.now());
        });
    }
    updateConsumed();
}

void HotkeyService::setRecordingActive(bool active) {
    if (active == m_state.isRecording() || (!active && m_startsUnderway > 0))
        return;
    if (active)
        m_state.recordingBegan();
    else
        m_state.recordingEnded();
    hotkeyLog(active ? QStringLiteral("🔹 A recording was started elsewhere")
                     : QStringLiteral("🔹 The recording has ended"),
              LogLevel::debug);
    stateChanged();
}

void HotkeyService::forgetPressedKeys() {
    m_heldKeyWatch.reset();
    m_state.interrupted();
    stateChanged();
}

void HotkeyService::watchHeldKey() {
    m_heldKeyWatch = m_clock.callLater(heldKeyCheck, [this] {
        const auto keepUntilDone = std::move(m_heldKeyWatch);
        releaseIfNotDown();
        if (m_state.isHotkeyPressed())
            watchHeldKey();
    });
}

void HotkeyService::releaseIfNotDown() {
    if (!m_state.isHotkeyPressed() || !m_wasSeenDown || m_source.isPhysicallyDown(m_config.keyCode))
        return;
    hotkeyLog(QStringLiteral("⚠️ The release of %1 got lost: taken as released").arg(m_config.displayString()),
              LogLevel::warn);
    handleHoldKeyUp(m_clock.now());
}

} // namespace quillo
