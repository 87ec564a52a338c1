#include "App/Dictation/SessionGuard.h"

namespace quillo {

SessionGuard::SessionGuard(SessionWatch& watch, HotkeyServiceProtocol& hotkeys, Dictation& dictation,
                           std::function<void()> notify)
    : m_hotkeys(hotkeys), m_dictation(dictation), m_notify(std::move(notify)) {
    watch.start([this] { userLeft(); });
    m_observation = dictation.store().observe([&watch](const RecordingState& before, const RecordingState& after) {
        if (before.status.isUnderWay() != after.status.isUnderWay())
            watch.delaySleep(after.status.isUnderWay());
    });
}

void SessionGuard::userLeft() {
    m_hotkeys.forgetPressedKeys();
    const bool isSpeaking = m_dictation.store().state().status.isActive();
    if (m_dictation.effects().isBusy())
        m_dictation.send(action::InterruptRecording{});
    if (isSpeaking)
        m_notify();
}

} // namespace quillo
