#include "App/Interface/HotkeySetup.h"

#include "Core/Log.h"
#include "Core/Preferences.h"
#include "Localization/LocalizationManager.h"
#include "Platform/Linux/Wayland/KeyBindingGuide.h"

#include <QCoreApplication>

namespace quillo::hotkeySetup {

namespace {

const QString offeredPreference = QStringLiteral("com.quillospeech.hotkeySetupOffered");

} // namespace

QString guide() {
    const auto environment = QProcessEnvironment::systemEnvironment();
    return keyBindingGuide(desktopShell(environment), desktopProtocol(environment),
                           QCoreApplication::applicationFilePath());
}

void offerOnce(Notifications& notifications) {
    if (Preferences::shared().value(offeredPreference).toBool())
        return;
    const auto& texts = LocalizationManager::shared();
    const auto message = texts.t(QStringLiteral("hotkey.notAvailable"), {QStringLiteral("quillo toggle")}) + u'\n' +
                         texts.t(QStringLiteral("hotkey.setupSteps"), {QStringLiteral("quillo setup-key")});
    notifications.show(message, [](const QString& failure) {
        if (failure.isEmpty())
            Preferences::shared().setValue(offeredPreference, true);
        else
            appLog(QStringLiteral("⚠️ No notification could be shown: ") + failure, LogLevel::warn,
                   QStringLiteral("App"));
    });
}

} // namespace quillo::hotkeySetup
