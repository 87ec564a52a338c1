#include "App/Interface/Notices.h"

#include "Core/Log.h"
#include "Core/NotificationCenter.h"
#include "Core/UserNotice.h"
#include "Localization/LocalizationManager.h"

#include <utility>

namespace quillo {

Notices::Notices() {
    m_posted = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                [this](const QString& name, const QVariantMap& userInfo) {
                                    if (name == notification::userNotice)
                                        add(userNotice::from(userInfo));
                                });
}

Notices::~Notices() { QObject::disconnect(m_posted); }

void Notices::add(const UserMessage& notice) {
    m_waiting.push_back(notice);
    if (m_notifications)
        deliver();
}

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
        const auto words = LocalizationManager::shared().t(notice);
        appLog(QStringLiteral("💬 ") + words, LogLevel::warn, QStringLiteral("App"));
        m_notifications->show(words);
        m_showHint(notice);
    }
}

} // namespace quillo
