#include "Platform/Linux/X11/InjectionGuard.h"

#include <algorithm>

namespace quillo {

void InjectionGuard::expect(uint8_t keycode, bool press) {
    if (!m_sourceRunning)
        return;
    const std::lock_guard lock(m_mutex);
    m_expected.push_back({keycode, press, std::chrono::steady_clock::now()});
}

bool InjectionGuard::consume(uint8_t keycode, bool press) {
    // The server drops the press of a key that is already down. Forget such an announcement, so that it does not hide a
    // key of the user.
    constexpr std::chrono::seconds lifetime(2);
    const std::lock_guard lock(m_mutex);
    const auto oldest = std::chrono::steady_clock::now() - lifetime;
    while (!m_expected.empty() && m_expected.front().announced < oldest)
        m_expected.pop_front();
    const auto found = std::find_if(m_expected.begin(), m_expected.end(),
                                    [&](const Expected& e) { return e.keycode == keycode && e.press == press; });
    if (found == m_expected.end())
        return false;
    m_expected.erase(found);
    return true;
}

void InjectionGuard::setPhysicallyDown(uint8_t keycode, bool down) {
    m_down[keycode] = down;
    if (!down)
        m_lifted[keycode] = false;
}

} // namespace quillo
