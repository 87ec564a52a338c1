#include "Services/Desktop/LaunchAtLogin.h"

#include "Core/Log.h"

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(QStringLiteral("[AppDelegate] ") + message, level, QStringLiteral("App"));
}

void logDesired(bool desired) {
    log(QStringLiteral("Launch at Login: desired=%1").arg(desired ? QStringLiteral("true") : QStringLiteral("false")));
}

} // namespace

bool LaunchAtLogin::reconcile(std::optional<bool> chosen) {
    const auto status = m_item.status();
    if (!chosen)
        return status == LoginItemStatus::enabled;
    if (*chosen && status == LoginItemStatus::requiresApproval) {
        log(QStringLiteral("Launch at Login was switched off in the session's settings; following them"));
        return false;
    }
    logDesired(*chosen);
    match(*chosen);
    return *chosen;
}

bool LaunchAtLogin::change(bool desired) {
    logDesired(desired);
    match(desired);
    return m_item.status() == LoginItemStatus::enabled;
}

void LaunchAtLogin::match(bool desired) {
    const auto before = m_item.status();
    try {
        // Also when it is enabled: the program may have moved since.
        if (desired)
            m_item.registerItem();
        else if (before == LoginItemStatus::enabled)
            m_item.unregisterItem();
        const auto after = m_item.status();
        if (after != before)
            log(QStringLiteral("✅ Launch at Login %1, new status=%2")
                    .arg(desired ? QStringLiteral("registered") : QStringLiteral("unregistered"), toString(after)));
    } catch (const LoginItemError& error) {
        log(QStringLiteral("⚠️ Failed to update Launch at Login: ") + error.message(), LogLevel::warn);
    }
}

} // namespace quillo
