#include "Services/Hotkeys/HotkeyService.h"

#include "Services/Hotkeys/HotkeyLog.h"
#include "Services/Settings/KeyCodeLabels.h"

#include <cmath>

namespace quillo {

namespace {

// How often a held key is checked: its release can be lost when another session or a hypervisor takes the keyboard.
constexpr auto heldKeyCheck = std::chrono::milliseconds(500);

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
    switch (event.type) {
    case KeyEventType::keyDown:
        handleKeyDown(event);
        break;
    case KeyEventType::keyUp:
        if (!m_config.isModifierKey() && event.keyCode == m_config.keyCode && m_isHotkeyPressed)
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
    uint64_t modifiers = event.flags & keyflag::mask;
    const uint64_t own = m_config.isModifierKey() && m_isHotkeyPressed ? modifierMaskOfKey(m_config.keyCode) : 0;
    // A held hold key is not a modifier of another hotkey, unless that hotkey includes it.
    const auto matches = [&](uint64_t wanted) { return modifiers == wanted || (modifiers & ~own) == (wanted & ~own); };
    const auto at = m_clock.now() - event.age;
    if (event.keyCode == m_config.toggleKeyCode && matches(m_config.toggleModifiers)) {
        if (!m_lastToggleActionTime || at - *m_lastToggleActionTime >= toggleCooldown)
            handleToggleKeyPress(at);
        return;
    }
    if (event.keyCode == keycode::escape && matches(0) && isEscapeConsumed()) {
        abandon(QStringLiteral("🛑 ESCAPE: CANCEL RECORDING"));
        return;
    }
    if (!m_config.isModifierKey()) {
        if (event.keyCode == m_config.keyCode && modifiers == m_config.modifiers && !m_isHotkeyPressed)
            handleHoldKeyDown(at);
        return;
    }
    // After a release in between (a tap that became a double tap) it is not a chord any more.
    if (m_isHotkeyPressed && m_isRecording && !m_isHandsOffMode && at - m_pressedAt < chordInterval)
        abandon(QStringLiteral("🔹 HOLD MODE: USED IN A CHORD - RECORDING CANCELLED ") + m_config.displayString());
}

void HotkeyService::handleFlagsChanged(const KeyEvent& event) {
    const auto at = m_clock.now() - event.age;
    if (m_config.isModifierKey()) {
        const bool isDown = (event.flags & modifierKeyBit(m_config.keyCode)) != 0;
        if (isDown && !m_isHotkeyPressed && !m_isToggleRecording)
            handleHoldKeyDown(at);
        else if (!isDown && m_isHotkeyPressed)
            handleHoldKeyUp(at);
    } else if (m_isHotkeyPressed && (event.flags & m_config.modifiers) != m_config.modifiers) {
        hotkeyLog(QStringLiteral("✅ MODIFIERS RELEASED! ") + m_config.displayString());
        handleHoldKeyUp(at);
    }
}

Clock::Duration HotkeyService::doubleTapInterval() const {
    const double seconds = m_settings.value(QStringLiteral("doubleTapInterval")).toDouble();
    return std::chrono::nanoseconds(std::llround((seconds > 0 ? seconds : 0.3) * 1e9));
}

bool HotkeyService::checkDoubleTap(Clock::Instant pressedAt) const {
    if (!m_lastKeyUpTime)
        return false;
    const auto gap = pressedAt - *m_lastKeyUpTime;
    if (gap > doubleTapInterval())
        return false;
    hotkeyLog(QStringLiteral("🔹 Double-tap detected! Interval since last release: %1s")
                  .arg(std::chrono::duration<double>(gap).count(), 0, 'f', 3));
    return true;
}

void HotkeyService::handleHoldKeyDown(Clock::Instant at) {
    m_isHotkeyPressed = true;
    m_alreadyStoppedOnKeyDown = false;
    m_pressedAt = at;
    if (m_isHandsOffMode) {
        hotkeyLog(QStringLiteral("✅ HOLD MODE (HANDS-OFF): STOP RECORDING ") + m_config.displayString());
        m_alreadyStoppedOnKeyDown = true;
        m_lastKeyUpTime.reset();
        setHandsOff(false);
        end(Ending::stop);
    } else if (checkDoubleTap(m_pressedAt)) {
        hotkeyLog(QStringLiteral("✅ HOLD MODE: DOUBLE-TAP → HANDS-OFF MODE ") + m_config.displayString());
        m_lastKeyUpTime.reset();
        m_pendingStop.reset();
        begin(); // unless the recording of the first tap still runs
        setHandsOff(true);
    } else if (m_pendingStop) {
        hotkeyLog(QStringLiteral("🔹 HOLD MODE: PRESSED AGAIN BEFORE THE STOP - RECORDING CONTINUES"));
        m_pendingStop.reset();
    } else {
        hotkeyLog(QStringLiteral("✅ HOLD MODE: START RECORDING ") + m_config.displayString());
        begin();
    }
    m_wasSeenDown = m_source.isPhysicallyDown(m_config.keyCode);
    watchHeldKey();
}

void HotkeyService::handleHoldKeyUp(Clock::Instant at) {
    m_isHotkeyPressed = false;
    m_heldKeyWatch.reset();
    if (m_alreadyStoppedOnKeyDown) {
        m_alreadyStoppedOnKeyDown = false;
        hotkeyLog(QStringLiteral("🔹 HOLD MODE: KEY RELEASED (already stopped on keyDown)"));
        return;
    }
    if (m_isHandsOffMode) {
        hotkeyLog(QStringLiteral("🔹 HOLD MODE (HANDS-OFF): KEY RELEASED - RECORDING CONTINUES"));
        return;
    }
    m_lastKeyUpTime = at;
    // Such a short tap may become a double tap: keep its recording until that is impossible.
    const bool isTap = at - m_pressedAt < stopDelayForDoubleTap;
    const Clock::Duration delay =
        isTap ? std::max<Clock::Duration>(stopDelayForDoubleTap, doubleTapInterval()) : stopDelayForDoubleTap;
    const auto left = std::max(at + delay - m_clock.now(), Clock::Duration::zero());
    m_pendingStop = m_clock.callLater(left, [this] {
        const auto keepUntilDone = std::move(m_pendingStop);
        if (m_isHandsOffMode) {
            hotkeyLog(QStringLiteral("🔹 HOLD MODE: STOP CANCELLED (double-tap activated hands-off)"));
            return;
        }
        hotkeyLog(QStringLiteral("✅ HOLD MODE: STOP RECORDING (delayed) ") + m_config.displayString());
        end(Ending::stop);
    });
}

void HotkeyService::handleToggleKeyPress(Clock::Instant at) {
    m_lastToggleActionTime = at;
    m_pendingStop.reset();
    if (!m_isToggleRecording) {
        hotkeyLog(QStringLiteral("✅ TOGGLE HOTKEY: START/UPGRADE RECORDING (%1)").arg(m_config.toggleDisplayString()));
        m_isToggleRecording = true;
        m_alreadyStoppedOnKeyDown = false;
        begin();
        setHandsOff(true);
        return;
    }
    hotkeyLog(QStringLiteral("✅ TOGGLE HOTKEY: STOP RECORDING (%1)").arg(m_config.toggleDisplayString()));
    m_isToggleRecording = false;
    m_lastKeyUpTime.reset();
    m_alreadyStoppedOnKeyDown = m_isHotkeyPressed;
    setHandsOff(false);
    end(Ending::stop);
}

bool HotkeyService::isEscapeConsumed() const { return m_isRecording && m_settings.cancelRecordingOnEscape(); }

void HotkeyService::begin() {
    if (m_isRecording)
        return;
    m_isRecording = true;
    ++m_startsUnderway;
    deliver([this] {
        --m_startsUnderway;
        if (onHotkeyDown)
            onHotkeyDown();
    });
    updateConsumed();
}

void HotkeyService::end(Ending ending) {
    if (!m_isRecording)
        return;
    m_isRecording = false;
    m_isToggleRecording = false;
    deliver([this, ending] {
        if (ending == Ending::cancel && onCancel)
            onCancel();
        else if (onHotkeyUp)
            onHotkeyUp();
    });
    updateConsumed();
}

void HotkeyService::setHandsOff(bool on) {
    m_isHandsOffMode = on;
    deliver([this, on] {
        if (onHandsOffModeChanged)
            onHandsOffModeChanged(on);
    });
}

void HotkeyService::abandon(const QString& reason) {
    hotkeyLog(reason);
    if (m_isHandsOffMode)
        setHandsOff(false);
    end(Ending::cancel);
    clearRecording();
}

void HotkeyService::clearRecording() {
    m_isRecording = false;
    m_isToggleRecording = false;
    m_isHandsOffMode = false;
    m_pendingStop.reset();
    m_lastKeyUpTime.reset();
    // The key may still be down; ignore its release.
    m_alreadyStoppedOnKeyDown = m_isHotkeyPressed;
    updateConsumed();
}

void HotkeyService::setRecordingActive(bool active) {
    if (active == m_isRecording)
        return;
    if (active && m_isHotkeyPressed) {
        // The start came late, and the key that asked for it is still down: its release stops the recording.
        m_isRecording = true;
        m_alreadyStoppedOnKeyDown = false;
        updateConsumed();
    } else if (active) {
        hotkeyLog(QStringLiteral("🔹 A recording was started elsewhere: the toggle hotkey stops it"), LogLevel::debug);
        m_isRecording = true;
        m_isToggleRecording = true;
        m_isHandsOffMode = true;
        updateConsumed();
    } else if (m_startsUnderway == 0) {
        hotkeyLog(QStringLiteral("🔹 The recording has ended"), LogLevel::debug);
        clearRecording();
    }
}

void HotkeyService::watchHeldKey() {
    m_heldKeyWatch = m_clock.callLater(heldKeyCheck, [this] {
        const auto keepUntilDone = std::move(m_heldKeyWatch);
        releaseIfNotDown();
        if (m_isHotkeyPressed)
            watchHeldKey();
    });
}

void HotkeyService::releaseIfNotDown() {
    if (!m_isHotkeyPressed || !m_wasSeenDown || m_source.isPhysicallyDown(m_config.keyCode))
        return;
    hotkeyLog(QStringLiteral("⚠️ The release of %1 got lost: taken as released").arg(m_config.displayString()),
              LogLevel::warn);
    handleHoldKeyUp(m_clock.now());
}

void HotkeyService::deliver(std::function<void()> callback) {
    m_clock.executor().post([alive = std::weak_ptr(m_alive), callback = std::move(callback)] {
        if (alive.lock())
            callback();
    });
}

} // namespace quillo
