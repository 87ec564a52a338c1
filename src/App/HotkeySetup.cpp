#include "App/HotkeySetup.h"

#include "Core/Log.h"
#include "Core/Preferences.h"
#include "Localization/LocalizationManager.h"
#include "Platform/Linux/Wayland/KeyBindingGuide.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QPlainTextEdit>
#include <QVBoxLayout>

namespace quillo::hotkeySetup {

namespace {

const QString offeredPreference = QStringLiteral("com.quillospeech.hotkeySetupOffered");

QString text(const QString& key, const QStringList& values = {}) {
    return LocalizationManager::shared().t(key, values);
}

} // namespace

QString guide() {
    const auto environment = QProcessEnvironment::systemEnvironment();
    return keyBindingGuide(desktopShell(environment), desktopProtocol(environment),
                           QCoreApplication::applicationFilePath());
}

void show() {
    auto* dialog = new QDialog;
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(text(QStringLiteral("tray.setUpHotkey")));
    auto* steps = new QPlainTextEdit(guide());
    steps->setReadOnly(true);
    steps->setLineWrapMode(QPlainTextEdit::NoWrap);
    steps->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::close);
    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(steps);
    layout->addWidget(buttons);
    dialog->resize(840, 520);
    dialog->show();
}

void offerOnce() {
    if (Preferences::shared().value(offeredPreference).toBool())
        return;
    const auto service = QStringLiteral("org.freedesktop.Notifications");
    auto message = QDBusMessage::createMethodCall(service, QStringLiteral("/org/freedesktop/Notifications"), service,
                                                  QStringLiteral("Notify"));
    const auto body = text(QStringLiteral("hotkey.notAvailable"), {QStringLiteral("quillo toggle")}) + u'\n' +
                      text(QStringLiteral("hotkey.setupSteps"), {QStringLiteral("quillo setup-key")});
    message << QStringLiteral("Quillo") << 0U << QStringLiteral("quillo") << QStringLiteral("Quillo") << body
            << QStringList() << QVariantMap() << -1;
    auto* reply = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(message), qApp);
    QObject::connect(reply, &QDBusPendingCallWatcher::finished, reply, [reply] {
        reply->deleteLater();
        const QDBusPendingReply<quint32> answer(*reply);
        if (answer.isError())
            appLog(QStringLiteral("⚠️ No notification could be shown: ") + answer.error().message(), LogLevel::warn,
                   QStringLiteral("App"));
        else
            Preferences::shared().setValue(offeredPreference, true);
    });
}

} // namespace quillo::hotkeySetup
