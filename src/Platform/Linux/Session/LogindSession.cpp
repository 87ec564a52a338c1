#include "Platform/Linux/Session/LogindSession.h"

#include "Core/Log.h"
#include "Platform/Linux/Session/LogindSessionWatch.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>

namespace quillo {

namespace {

// https://www.freedesktop.org/software/systemd/man/org.freedesktop.login1.html
const QString service = QStringLiteral("org.freedesktop.login1");
const QString managerPath = QStringLiteral("/org/freedesktop/login1");
const QString managerInterface = QStringLiteral("org.freedesktop.login1.Manager");
const QString sessionInterface = QStringLiteral("org.freedesktop.login1.Session");
const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");

constexpr const char* unnoticed = "A locked session is not noticed through logind";

} // namespace

LogindSession::LogindSession(QDBusConnection system, QDBusConnection session)
    : m_system(std::move(system)), m_session(std::move(session)) {}

void LogindSession::start(std::function<void()> onLeft) {
    m_onLeft = std::move(onLeft);
    if (m_session.isConnected()) {
        for (const auto* desktop : {"freedesktop", "gnome", "cinnamon", "mate", "xfce"})
            m_session.connect({}, {}, QStringLiteral("org.%1.ScreenSaver").arg(QLatin1String(desktop)),
                              QStringLiteral("ActiveChanged"), this, SLOT(screenSaverChanged(bool)));
    }
    if (!m_system.isConnected())
        return;
    m_system.connect(service, managerPath, managerInterface, QStringLiteral("PrepareForSleep"), this,
                     SLOT(prepareForSleep(bool)));
    // "auto" is the caller's session or, for a service of the user, the user's graphical session.
    auto question =
        QDBusMessage::createMethodCall(service, managerPath, managerInterface, QStringLiteral("GetSession"));
    question << (qEnvironmentVariableIsEmpty("XDG_SESSION_ID") ? QStringLiteral("auto")
                                                               : qEnvironmentVariable("XDG_SESSION_ID"));
    call(question, unnoticed, [this](const QDBusMessage& answer) {
        watchSession(answer.arguments().value(0).value<QDBusObjectPath>().path());
    });
}

void LogindSession::watchSession(const QString& path) {
    m_system.connect(service, path, sessionInterface, QStringLiteral("Lock"), this, SLOT(lock()));
    m_system.connect(service, path, properties, QStringLiteral("PropertiesChanged"), this,
                     SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
    auto question = QDBusMessage::createMethodCall(service, path, properties, QStringLiteral("GetAll"));
    question << sessionInterface;
    call(question, unnoticed,
         [this](const QDBusMessage& answer) { take(qdbus_cast<QVariantMap>(answer.arguments().value(0))); });
}

// https://www.freedesktop.org/wiki/Software/systemd/inhibit/
void LogindSession::delaySleep(bool delays) {
    m_delaysSleep = delays;
    if (!delays)
        m_sleepDelay = {};
    if (!delays || m_isAskingForDelay || m_sleepDelay.isValid() || !m_system.isConnected())
        return;
    m_isAskingForDelay = true;
    auto question = QDBusMessage::createMethodCall(service, managerPath, managerInterface, QStringLiteral("Inhibit"));
    question << QStringLiteral("sleep") << QStringLiteral("Quillo") << QStringLiteral("A dictation is being kept")
             << QStringLiteral("delay");
    call(question, "Sleep does not wait for a dictation", [this](const QDBusMessage& answer) {
        m_isAskingForDelay = false;
        if (m_delaysSleep)
            m_sleepDelay = answer.arguments().value(0).value<QDBusUnixFileDescriptor>();
    });
}

void LogindSession::prepareForSleep(bool isStarting) {
    if (isStarting)
        left("the machine goes to sleep");
}

void LogindSession::lock() { left("the session is being locked"); }

void LogindSession::screenSaverChanged(bool isActive) {
    if (isActive)
        left("the screen saver has started");
}

void LogindSession::propertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList&) {
    if (interface == sessionInterface)
        take(changed);
}

void LogindSession::take(const QVariantMap& changed) {
    const bool wasLocked = std::exchange(m_isLocked, changed.value(QStringLiteral("LockedHint"), m_isLocked).toBool());
    const bool wasActive = std::exchange(m_isActive, changed.value(QStringLiteral("Active"), m_isActive).toBool());
    if (m_isLocked && !wasLocked)
        left("the session is locked");
    if (!m_isActive && wasActive)
        left("another session has the screen");
}

void LogindSession::left(const char* reason) {
    appLog(QStringLiteral("🔒 The user has left: ") + QLatin1String(reason), LogLevel::info, QStringLiteral("Session"));
    m_onLeft();
}

void LogindSession::call(const QDBusMessage& message, const char* problem,
                         std::function<void(const QDBusMessage&)> answered) {
    auto* reply = new QDBusPendingCallWatcher(m_system.asyncCall(message), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this, [reply, problem, answered = std::move(answered)] {
        reply->deleteLater();
        if (reply->isError())
            appLog(QStringLiteral("⚠️ %1: %2").arg(QLatin1String(problem), reply->error().message()), LogLevel::warn,
                   QStringLiteral("Session"));
        else
            answered(reply->reply());
    });
}

std::unique_ptr<SessionWatch> createLogindSessionWatch(QDBusConnection system, QDBusConnection session) {
    return std::make_unique<LogindSession>(std::move(system), std::move(session));
}

} // namespace quillo
