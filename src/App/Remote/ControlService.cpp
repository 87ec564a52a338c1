#include "App/Remote/ControlService.h"

#include "App/Remote/AccountText.h"
#include "App/Remote/ApplicationAdaptor.h"
#include "App/Remote/ControlInterface.h"
#include "App/Remote/SettingsText.h"
#include "Core/Log.h"
#include "Localization/LocalizationManager.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QTimer>

namespace quillo {

ControlService::ControlService(Commands& commands, std::function<bool(const QString& language)> isServed)
    : m_commands(commands), m_isServed(std::move(isServed)) {
    new ApplicationAdaptor(this, {.activate = [this] { perform(&Commands::show); },
                                  .openURL = [this](const QString& url) { answer([&] { m_commands.openURL(url); }); },
                                  .runAction = [this](const QString& name) { runAction(name); }});
}

void ControlService::runAction(const QString& name) {
    // The actions of the desktop entry have the names of the commands.
    if (name == QStringLiteral("toggle"))
        perform(&Commands::toggle);
    else if (name == QStringLiteral("again"))
        perform(&Commands::insertAgain);
    else
        appLog(QStringLiteral("⚠️ The desktop asked for an action that does not exist: %1").arg(name.left(40)),
               LogLevel::warn, QStringLiteral("Control"));
}

ControlService::Registration ControlService::registerOnBus() {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        appLog(
            QStringLiteral("⚠️ No session bus: the application cannot be controlled with \"quillo start\" and the like"),
            LogLevel::warn, QStringLiteral("Control"));
        return Registration::noBus;
    }
    // Register the object before taking the name: clients may call it as soon as they see the name.
    bus.registerObject(control::objectPath, this,
                       QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportAdaptors);
    const auto reply =
        bus.interface()->registerService(control::serviceName, QDBusConnectionInterface::DontQueueService,
                                         QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return Registration::registered;
    bus.unregisterObject(control::objectPath);
    return Registration::alreadyRunning;
}

void ControlService::answer(const std::function<void()>& command) {
    try {
        command();
    } catch (const std::exception& error) {
        if (calledFromDBus())
            sendErrorReply(QDBusError::InvalidArgs, LocalizationManager::shared().t(error));
    }
}

void ControlService::Quit() {
    // Quit after the reply has been sent.
    QTimer::singleShot(0, this, [this] { m_commands.quit(); });
}

QString ControlService::GetSetting(const QString& key) {
    QString value;
    answer([&] { value = settingsText::get(UserSettings::shared(), key); });
    return value;
}

void ControlService::SetSetting(const QString& key, const QString& value) {
    answer([&] { settingsText::set(UserSettings::shared(), key, value, m_isServed); });
}

void ControlService::ForceSetting(const QString& key, const QString& value) {
    answer([&] { settingsText::set(UserSettings::shared(), key, value, {}); });
}

QString ControlService::ListSettings() { return settingsText::list(UserSettings::shared()); }

void ControlService::HistoryDelete(const QString& id) {
    answer([&] { m_commands.deleteRecord(id); });
}

void ControlService::HistoryRetranscribe(const QString& id, const QString& language) {
    answer([&] { m_commands.retranscribeRecord(id, language); });
}

void ControlService::HistoryCopy(const QString& id) {
    answer([&] { m_commands.copyRecord(id); });
}

QString ControlService::Account() { return accountText(m_commands.account()); }

} // namespace quillo
