#include "App/System/LoginItemSetting.h"

namespace quillo {

namespace {

const QString settingKey = QStringLiteral("launchAtLogin");

} // namespace

LoginItemSetting::LoginItemSetting(LoginItem& item, UserSettings& settings)
    : m_settings(settings), m_launchAtLogin(item) {
    reconcile();
    QObject::connect(&settings, &UserSettings::userChanged, &m_context, [this] { reconcile(); });
    QObject::connect(&settings, &UserSettings::changed, &m_context, [this](const QString& key) {
        if (key == settingKey)
            settingDidChange();
    });
}

void LoginItemSetting::reconcile() {
    const bool isChosen = m_settings.isStored(settingKey);
    const bool chosen = m_settings.launchAtLogin();
    m_isEnabled = m_launchAtLogin.reconcile(isChosen ? std::optional(chosen) : std::nullopt);
    if (isChosen && m_isEnabled != chosen)
        m_settings.setValue(settingKey, m_isEnabled);
}

void LoginItemSetting::settingDidChange() {
    const bool desired = m_settings.launchAtLogin();
    if (desired == m_isEnabled)
        return;
    m_isEnabled = m_launchAtLogin.change(desired);
    // Store the actual state: if the desktop refused, the setting is reverted.
    if (m_isEnabled != desired)
        m_settings.setValue(settingKey, m_isEnabled);
}

} // namespace quillo
