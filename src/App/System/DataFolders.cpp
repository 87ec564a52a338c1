#include "App/System/DataFolders.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <unistd.h>

namespace quillo {

namespace {

bool canWrite(const QString& folder) {
    return QDir().mkpath(folder) && ::access(QFile::encodeName(folder).constData(), W_OK) == 0;
}

} // namespace

std::optional<UserMessage> leaveReadOnlyHome() {
    const auto home = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    const auto runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    // Check the application's own folder: its parent may belong to another user.
    if (canWrite(home + QStringLiteral("/quillo")) || runtime.isEmpty() || !canWrite(runtime))
        return std::nullopt;
    const auto folder = runtime + QStringLiteral("/quillo");
    for (const auto& [variable, name] : {std::pair("XDG_DATA_HOME", "/data"), std::pair("XDG_STATE_HOME", "/state")}) {
        const auto replacement = folder + QLatin1String(name);
        if (!canWrite(replacement))
            return std::nullopt;
        qputenv(variable, QFile::encodeName(replacement));
    }
    return UserMessage{QStringLiteral("start.readOnlyHome"), {home, folder}};
}

} // namespace quillo
