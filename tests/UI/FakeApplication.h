#pragma once

#include "UI/UserInterfaceHooks.h"

#include <QPointF>
#include <QString>

#include <optional>

namespace quillo::test {

/// Hooks that answer with made-up microphones, all languages and a scripted account, and record their calls.
class FakeApplication {
public:
    FakeApplication();
    FakeApplication(const FakeApplication&) = delete;
    FakeApplication& operator=(const FakeApplication&) = delete;

    UserInterfaceHooks hooks;
    bool pillWanted = true;
    std::optional<QPointF> pillPosition;
    QString chosenLanguage;
    QStringList chosenMicrophones; ///< "" for the system's default

    AccountState account{.kind = AccountState::Kind::anonymous};
    QStringList accountRequests; ///< the names of the hooks that were called

    QString hotkey = QStringLiteral("Right Super");
    std::function<void(bool)> hotkeyObserver; ///< empty while no trial runs

    bool isMicrophoneOpen = false;
    int microphoneTests = 0;
    bool isUnbalanced = false; ///< a test was started twice, or stopped without one
    std::function<void(float)> microphoneLevel;
    std::function<void(QString)> microphoneFailure; ///< ends the test, as the application would

    bool launchAtLogin = false;
    bool isLaunchAtLoginRefused = false;
    int finishedWelcomes = 0;
};

} // namespace quillo::test
