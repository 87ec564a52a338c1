#include "App/DataFolders.h"

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

QString leaveReadOnlyHome() {
    const auto home = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    const auto runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    // The application's own folder: the one around it may be another's.
    if (canWrite(home + QStringLiteral("/quillo")) || runtime.isEmpty() || !canWrite(runtime))
        return {};
    const auto folder = runtime + QStringLiteral("/quillo");
    for (const auto& [variable, name] : {std::pair("XDG_DATA_HOME", "/data"), std::pair("XDG_STATE_HOME", "/state")}) {
        const auto replacement = folder + QLatin1String(name);
        if (!canWrite(replacement))
            return {};
        qputenv(variable, QFile::encodeName(replacement));
    }
    return QStringLiteral(
               "%1 cannot be written. Until you log out, Quillo keeps its history and recordings in %2; what "
               "is to stay must be copied from there. Make the folder writable and start Quillo again.")
        .arg(home, folder);
}

} // namespace quillo
