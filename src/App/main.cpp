#include "App/AppDelegate.h"
#include "App/CommandLine/CommandLine.h"
#include "App/Interface/HotkeySetup.h"
#include "App/Remote/ControlClient.h"
#include "App/System/DataFolders.h"
#include "App/System/ServiceContainer.h"
#include "App/System/TerminationSignals.h"
#include "Core/Log.h"
#include "Core/LoggingService.h"
#include "Localization/ToolkitTexts.h"
#include "Platform/Linux/Wayland/DesktopProtocol.h"
#include "UI/UserInterface.h"

#include <QApplication>
#include <QCoreApplication>
#include <QStandardPaths>
#include <QTextStream>

#include <csignal>

using namespace quillo;

namespace {

QString helpText() {
    return QStringLiteral(
               "usage: quillo [COMMAND]\n\n"
               "Without a command Quillo starts: hold Right Super, speak, let go, and Quillo inserts the text at\n"
               "the cursor. The commands act on the running Quillo:\n\n") +
           commandLine::help() +
           QStringLiteral("  setup-key  print how to bind a key to dictation on this desktop; needs no running Quillo\n"
                          "\n  --seed-data  start with a few demonstration records in the history\n"
                          "  --version    print the version\n  --help       print this\n\n"
                          "Environment:\n"
                          "  QUILLO_SERVER_HOST     the server to dictate with, HOST or HOST:PORT; without it Quillo\n"
                          "                         starts its own on this computer\n"
                          "  QUILLO_SERVER_OPTIONS  more options for that server, see quillo-server --help\n"
                          "  QUILLO_DESKTOP_PROTOCOL  x11 or wayland: how keys and clipboard are reached, where\n"
                          "                         the session gives the wrong answer\n"
                          "  QUILLO_CA_FILE         one more trusted certificate authority, in PEM\n"
                          "  USE_MOCK_SERVICES      set: run on stand-ins for microphone, server and account\n");
}

/// Report a missing display here, because Qt would abort the process.
bool hasDisplay() {
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

int runApplication(int argc, char** argv, const std::optional<UserMessage>& notice) {
    if (!hasDisplay()) {
        QTextStream(stderr) << "quillo: there is no display here. Start Quillo in a desktop session.\n";
        return 1;
    }
    configureRendering();
    const auto platform = windowPlatform(QProcessEnvironment::systemEnvironment());
    if (!platform.isEmpty())
        qputenv("QT_QPA_PLATFORM", platform);
    QApplication application(argc, argv);
    if (!platform.isEmpty())
        qunsetenv("QT_QPA_PLATFORM"); // programs opened from here choose their own platform
    QApplication::setApplicationDisplayName(QStringLiteral("Quillo"));
    QApplication::setDesktopFileName(QStringLiteral("org.quillo.Quillo"));
    QApplication::setQuitOnLastWindowClosed(false);
    // A run on mock services must not touch the user's files.
    if (ServiceContainer::usesMockServices())
        QStandardPaths::setTestModeEnabled(true);
    LoggingService::shared().open();
    logQtMessages();
    translateToolkit(LocalizationManager::shared());
    // Treat a write beyond the user's file size limit as an error like a full disk, not as the end of the program.
    std::signal(SIGXFSZ, SIG_IGN);
    int code = 0;
    try {
        AppDelegate delegate;
        if (notice)
            delegate.tellUser(*notice);
        if (delegate.launch()) {
            onTerminationSignal([&delegate] { delegate.quit(); });
            code = QApplication::exec();
        } else {
            controlClient::activate();
            QTextStream(stdout) << "Quillo is running already; see its icon in the tray.\n";
        }
    } catch (const std::exception& error) {
        appLog(QString::fromUtf8(error.what()), LogLevel::error, QStringLiteral("App"));
        QTextStream(stderr) << "quillo: " << QString::fromUtf8(error.what()) << '\n';
        code = 1;
    }
    appLog(QStringLiteral("👋 Quillo terminated"), LogLevel::info, QStringLiteral("App"));
    return code;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication::setApplicationName(QStringLiteral("quillo"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUILLO_VERSION));
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);

    // The commands need this too, because they read the history that the running instance writes.
    const auto notice = leaveReadOnlyHome();
    if (commandLine::understands(arguments)) {
        const QCoreApplication application(argc, argv);
        return commandLine::run(arguments);
    }
    if (arguments.size() == 1 && arguments.constFirst().startsWith(QStringLiteral("quillo:"))) {
        const QCoreApplication application(argc, argv);
        return controlClient::openURL(arguments.constFirst());
    }
    if (arguments.isEmpty() || arguments == QStringList{QStringLiteral("--seed-data")})
        return runApplication(argc, argv, notice);
    if (arguments == QStringList{QStringLiteral("setup-key")}) {
        const QCoreApplication application(argc, argv);
        QTextStream(stdout) << hotkeySetup::guide();
        return 0;
    }
    if (arguments == QStringList{QStringLiteral("--help")} || arguments == QStringList{QStringLiteral("-h")}) {
        QTextStream(stdout) << helpText();
        return 0;
    }
    if (arguments == QStringList{QStringLiteral("--version")}) {
        QTextStream(stdout) << "quillo " << QUILLO_VERSION << '\n';
        return 0;
    }
    QTextStream(stderr) << "quillo: unknown command \"" << arguments.constFirst() << "\"; see quillo --help\n";
    return 2;
}
