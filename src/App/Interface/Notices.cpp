#include "App/Interface/Notices.h"

#include "Core/Log.h"
#include "Core/NotificationCenter.h"
#include "Localization/LocalizationManager.h"

#include <utility>

namespace quillo {

Notices::Notices() {
    m_posted = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                [this](const QString& name, const QVariantMap& userInfo) {
                                    if (name == notification::userNotice)
                                        add(userInfo.value(QStringLiteral("message")).toString());
                                });
}

Notices::~Notices() { QObject::disconnect(m_posted); }

void Notices::add(const QString& notice) {
    m_waiting << notice;
    if (m_notifications)
        deliver();
}

void Notices::add(const UserMessage& notice) { add(LocalizationManager::shared().t(notice)); }

void Notices::deliverTo(Notifications& notifications, ShowHint showHint) {
    m_notifications = &notifications;
    m_showHint = std::move(showHint);
    deliver();
}

void Notices::close() {
    QObject::disconnect(m_posted);
    m_notifications = nullptr;
}

void Notices::deliver() {
    for (const auto& notice : std::exchange(m_waiting, {})) {
        appLog(QStringLiteral("💬 ") + notice, LogLevel::warn, QStringLiteral("App"));
        m_notifications->show(notice);
        m_showHint(notice);
    }
}

} // namespace quillo
