#include "App/Dictation/KeyRefusal.h"

#include "Core/Log.h"

#include <utility>

namespace quillo {

bool KeyRefusal::refuses() {
    if (!m_isAway())
        return false;
    const auto now = m_clock.now();
    const auto before = std::exchange(m_refusedAt, now);
    appLog(QStringLiteral("🔒 The hotkey is ignored: the desktop says that this session is locked or inactive"),
           LogLevel::warn, QStringLiteral("App"));
    const bool isRepeated = before && now - *before <= repetition;
    if (isRepeated && (!m_notifiedAt || now - *m_notifiedAt >= silence)) {
        m_notifiedAt = now;
        m_notify();
    }
    return true;
}

} // namespace quillo
