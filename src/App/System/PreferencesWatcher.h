#pragma once

#include "Core/Preferences.h"

#include <QFileSystemWatcher>
#include <QHash>

namespace quillo {

/// Applies edits of the settings file by other programs, such as the editor that the tray menu opens: `preferences`
/// then has the new values and announces them. A file that is not a settings file is ignored. Main thread.
class PreferencesWatcher {
public:
    /// `preferences` must outlive the object.
    explicit PreferencesWatcher(Preferences& preferences);

private:
    using Values = QHash<QString, QString>;
    void fileMayHaveChanged();
    [[nodiscard]] Values values() const;

    Preferences& m_preferences;
    Values m_known;
    QFileSystemWatcher m_watcher;
};

} // namespace quillo
