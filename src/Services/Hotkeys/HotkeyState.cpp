#include "Services/Hotkeys/HotkeyState.h"

#include "Services/Hotkeys/HotkeyConfig.h"

#include <algorithm>

namespace quillo {

HotkeyState::Transition HotkeyState::handleHoldKeyDown(Clock::Instant at, Clock::Duration doubleTapInterval,
                                                       const HotkeyConfig& config) {
    Transition done;
    m_pressed = PressedKey{at};
    if (isHandsOffMode()) {
        done.log << QStringLiteral("✅ HOLD MODE (HANDS-OFF): STOP RECORDING ") + config.displayString();
        done.effects = {Effect::noHandsOff, Effect::stop};
        m_recording = Idle{};
        ignoreRelease();
    } else if (checkDoubleTap(at, doubleTapInterval, done.log)) {
        done.log << QStringLiteral("✅ HOLD MODE: DOUBLE-TAP → HANDS-OFF MODE ") + config.displayString();
        if (!isRecording()) // the recording of the first tap may still run
            done.effects.push_back(Effect::begin);
        done.effects.push_back(Effect::handsOff);
        m_recording = HandsOff{};
    } else if (isRecording()) {
        done.log << QStringLiteral("🔹 HOLD MODE: PRESSED AGAIN BEFORE THE STOP - RECORDING CONTINUES");
        m_recording = Holding{};
    } else {
        done.log << QStringLiteral("✅ HOLD MODE: START RECORDING ") + config.displayString();
        done.effects = {Effect::begin};
        m_recording = Holding{};
    }
    return done;
}

HotkeyState::Transition HotkeyState::handleHoldKeyUp(Clock::Instant at, Clock::Duration doubleTapInterval) {
    if (!m_pressed)
        return {};
    const PressedKey key = *m_pressed;
    m_pressed.reset();
    if (key.alreadyStoppedOnKeyDown)
        return {{QStringLiteral("🔹 HOLD MODE: KEY RELEASED (already stopped on keyDown)")}, {}};
    if (isHandsOffMode())
        return {{QStringLiteral("🔹 HOLD MODE (HANDS-OFF): KEY RELEASED - RECORDING CONTINUES")}, {}};
    // A tap may become a double tap: keep its recording until that is impossible.
    const bool isTap = at - key.at < stopDelayForDoubleTap;
    const auto delay =
        isTap ? std::max<Clock::Duration>(stopDelayForDoubleTap, doubleTapInterval) : stopDelayForDoubleTap;
    m_recording = PendingStop{.lastKeyUpTime = at, .dueAt = at + delay};
    return {};
}

HotkeyState::Transition HotkeyState::handleToggleKeyPress(Clock::Instant at, const HotkeyConfig& config) {
    if (m_lastToggleActionTime && at - *m_lastToggleActionTime < toggleCooldown)
        return {};
    m_lastToggleActionTime = at;
    if (isToggleRecording()) {
        m_recording = Idle{};
        ignoreRelease();
        return {{QStringLiteral("✅ TOGGLE HOTKEY: STOP RECORDING (%1)").arg(config.toggleDisplayString())},
                {Effect::noHandsOff, Effect::stop}};
    }
    Transition done;
    done.log << QStringLiteral("✅ TOGGLE HOTKEY: START/UPGRADE RECORDING (%1)").arg(config.toggleDisplayString());
    if (!isRecording())
        done.effects.push_back(Effect::begin);
    done.effects.push_back(Effect::handsOff);
    m_recording = HandsOff{.isToggleRecording = true};
    if (m_pressed)
        m_pressed->alreadyStoppedOnKeyDown = false;
    return done;
}

HotkeyState::Transition HotkeyState::stopAfterDelay(const HotkeyConfig& config) {
    const auto* pending = std::get_if<PendingStop>(&m_recording);
    if (!pending)
        return {};
    m_recording = Idle{pending->lastKeyUpTime};
    return {{QStringLiteral("✅ HOLD MODE: STOP RECORDING (delayed) ") + config.displayString()}, {Effect::stop}};
}

HotkeyState::Transition HotkeyState::abandon(const QString& reason) {
    Transition done{{reason}, {}};
    if (isHandsOffMode())
        done.effects.push_back(Effect::noHandsOff);
    if (isRecording())
        done.effects.push_back(Effect::cancel);
    recordingEnded();
    return done;
}

HotkeyState::Transition HotkeyState::reset() {
    Transition done;
    if (isHandsOffMode())
        done.effects.push_back(Effect::noHandsOff);
    if (isRecording())
        done.effects.push_back(Effect::stop);
    interrupted();
    return done;
}

void HotkeyState::recordingBegan() {
    if (m_pressed) {
        // The start came late, and the key that asked for it is still down: its release stops the recording.
        m_recording = Holding{};
        m_pressed->alreadyStoppedOnKeyDown = false;
    } else {
        m_recording = HandsOff{.isToggleRecording = true};
    }
}

void HotkeyState::recordingEnded() {
    m_recording = Idle{};
    ignoreRelease();
}

void HotkeyState::interrupted() {
    m_recording = Idle{};
    m_pressed.reset();
}

bool HotkeyState::isToggleRecording() const {
    const auto* handsOff = std::get_if<HandsOff>(&m_recording);
    return handsOff && handsOff->isToggleRecording;
}

bool HotkeyState::isChord(Clock::Instant at) const {
    return m_pressed && std::holds_alternative<Holding>(m_recording) && at - m_pressed->at < chordInterval;
}

std::optional<Clock::Instant> HotkeyState::stopDueAt() const {
    const auto* pending = std::get_if<PendingStop>(&m_recording);
    return pending ? std::optional(pending->dueAt) : std::nullopt;
}

std::optional<Clock::Instant> HotkeyState::lastKeyUpTime() const {
    if (const auto* pending = std::get_if<PendingStop>(&m_recording))
        return pending->lastKeyUpTime;
    const auto* idle = std::get_if<Idle>(&m_recording);
    return idle ? idle->lastKeyUpTime : std::nullopt;
}

bool HotkeyState::checkDoubleTap(Clock::Instant at, Clock::Duration interval, QStringList& log) const {
    const auto released = lastKeyUpTime();
    if (!released || at - *released > interval)
        return false;
    log << QStringLiteral("🔹 Double-tap detected! Interval since last release: %1s")
               .arg(std::chrono::duration<double>(at - *released).count(), 0, 'f', 3);
    return true;
}

void HotkeyState::ignoreRelease() {
    if (m_pressed)
        m_pressed->alreadyStoppedOnKeyDown = true;
}

} // namespace quillo
