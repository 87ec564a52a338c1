#include "App/System/PreferencesWatcher.h"

#include "Core/Log.h"
#include "Core/SettingsSyntax.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace quillo {

PreferencesWatcher::PreferencesWatcher(Preferences& preferences) : m_preferences(preferences), m_known(values()) {
    const auto folder = QFileInfo(preferences.path()).absolutePath();
    QDir().mkpath(folder);
    // Editors replace the file, which ends the watch on it; the watch on the folder stays.
    m_watcher.addPaths({folder, preferences.path()});
    for (const auto signal : {&QFileSystemWatcher::fileChanged, &QFileSystemWatcher::directoryChanged})
        QObject::connect(&m_watcher, signal, &m_watcher, [this] { fileMayHaveChanged(); });
    QObject::connect(&preferences, &Preferences::changed, &m_watcher, [this] { m_known = values(); });
}

PreferencesWatcher::Values PreferencesWatcher::values() const {
    Values values;
    for (const auto& key : m_preferences.keys())
        values.insert(key, m_preferences.value(key).toString());
    return values;
}

void PreferencesWatcher::fileMayHaveChanged() {
    const auto path = m_preferences.path();
    if (!m_watcher.files().contains(path))
        m_watcher.addPath(path);
    QFile file(path);
    // While an editor replaces or writes the file, it may be missing or empty.
    if (!file.open(QIODevice::ReadOnly) || file.size() == 0)
        return;
    if (const auto reason = whyNoSettings(file.readAll()); !reason.isEmpty()) {
        appLog(QStringLiteral("[Preferences] ⚠️ Ignoring the edited %1: %2. Correct it there").arg(path, reason),
               LogLevel::warn, QStringLiteral("Preferences"));
        return;
    }
    // All QSettings of one file share its content.
    QSettings(path, QSettings::IniFormat).sync();
    const auto before = m_known;
    m_known = values();
    QStringList differing;
    for (auto now = m_known.cbegin(); now != m_known.cend(); ++now)
        if (const auto old = before.constFind(now.key()); old == before.cend() || *old != now.value())
            differing << now.key();
    for (auto old = before.cbegin(); old != before.cend(); ++old)
        if (!m_known.contains(old.key()))
            differing << old.key();
    for (const auto& key : differing)
        Q_EMIT m_preferences.changed(key);
}

} // namespace quillo
