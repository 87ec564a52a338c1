#include "App/ControlService.h"

#include "App/ApplicationAdaptor.h"
#include "App/ControlInterface.h"
#include "Core/Log.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QTimer>

#include <stdexcept>

namespace quillo {

ControlService::ControlService(ControlHooks hooks) : m_hooks(std::move(hooks)) {
    new ApplicationAdaptor(this, {.activate = [this] { perform(m_hooks.show); },
                                  .openURL = [this](const QString& url) { m_hooks.openURL(url); },
                                  .runAction = [this](const QString& name) { runAction(name); }});
}

void ControlService::runAction(const QString& name) {
    // The actions of the desktop entry are named as the commands are.
    if (name == QStringLiteral("toggle"))
        perform(m_hooks.toggle);
    else if (name == QStringLiteral("again"))
        perform(m_hooks.insertAgain);
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
    // The object stands before the name is taken: who sees the name may call at once.
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

void ControlService::perform(const std::function<void()>& hook) {
    try {
        hook();
    } catch (const std::exception& error) {
        if (calledFromDBus())
            replyWithError(error);
    }
}

void ControlService::Quit() {
    // After the reply has left.
    QTimer::singleShot(0, this, [this] { m_hooks.quit(); });
}

QString ControlService::GetSetting(const QString& key) {
    try {
        return m_hooks.getSetting(key);
    } catch (const std::exception& error) {
        replyWithError(error);
        return {};
    }
}

void ControlService::SetSetting(const QString& key, const QString& value) {
    try {
        m_hooks.setSetting(key, value);
    } catch (const std::exception& error) {
        replyWithError(error);
    }
}

template <typename Hook, typename... Arguments>
void ControlService::onHistory(const Hook& hook, const Arguments&... arguments) {
    try {
        if (!hook)
            throw std::runtime_error("The running Quillo could not open its history. Its log says why.");
        hook(arguments...);
    } catch (const std::exception& error) {
        replyWithError(error);
    }
}

void ControlService::HistoryDelete(const QString& id) { onHistory(m_hooks.historyDelete, id); }

void ControlService::HistoryRetranscribe(const QString& id, const QString& language) {
    onHistory(m_hooks.historyRetranscribe, id, language);
}

void ControlService::HistoryCopy(const QString& id) { onHistory(m_hooks.historyCopy, id); }

void ControlService::replyWithError(const std::exception& error) {
    sendErrorReply(QDBusError::InvalidArgs, QString::fromUtf8(error.what()));
}

} // namespace quillo
