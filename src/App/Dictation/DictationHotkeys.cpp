#include "App/Dictation/DictationHotkeys.h"

#include "Core/Log.h"

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("App")); }

} // namespace

DictationHotkeys::DictationHotkeys(HotkeyServiceProtocol& service, Dictation& dictation)
    : m_service(service), m_dictation(dictation) {
    m_service.onHotkeyDown = [this](Clock::Instant pressedAt) { handle(true, action::StartRecording{pressedAt}); };
    m_service.onHotkeyUp = [this] { handle(false, action::StopRecording{}); };
    m_service.onCancel = [this] { handle(false, action::CancelRecording{}); };
    m_service.onHandsOffModeChanged = [this](bool handsOff) { m_dictation.send(action::SetHandsOff{handsOff}); };
    m_service.onConfigurationChanged = [] {
        log(QStringLiteral("[AppDelegate] Hotkey configuration changed, restarting service..."));
    };
    m_service.onKeysReturned = [this] {
        log(QStringLiteral("[AppDelegate] ✅ Accessibility granted, hotkey service restarted (running=%1)")
                .arg(m_service.isRunning() ? 1 : 0));
    };
}

DictationHotkeys::~DictationHotkeys() { m_service.stop(); }

bool DictationHotkeys::arm() {
    m_service.start();
    if (m_service.isRunning())
        return true;
    log(QStringLiteral("[AppDelegate] ⚠️ Accessibility not granted. Hotkeys will not work until permission is granted."),
        LogLevel::warn);
    log(QStringLiteral("[AppDelegate] A key of the desktop can be bound instead; the steps: quillo setup-key"));
    return false;
}

void DictationHotkeys::handle(bool isDown, const RecordingAction& action) {
    if (m_observer)
        m_observer(isDown);
    else if (isDown && m_isAway())
        m_service.setRecordingActive(false);
    else
        m_dictation.send(action);
}

} // namespace quillo
